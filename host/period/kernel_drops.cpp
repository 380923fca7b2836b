// SPDX-License-Identifier: Apache-2.0
#include "host/period/kernel_drops.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace flow::host {
namespace {

// The datagrams that an exporter's gaps stand for; of flows and records as many as usual in each.
double DatagramsLost(const ExportSource& source, const ExporterCounts& counts) {
  const auto lost = static_cast<double>(counts.gaps.Lost());
  if (source.version.sflow || source.version.number == 9) return lost;
  if (counts.datagrams == 0 || counts.books.described < counts.datagrams) return lost;
  return lost * static_cast<double>(counts.datagrams) / static_cast<double>(counts.books.described);
}

void TakeShareOff(double share, SequenceGaps* gaps) {
  gaps->here += static_cast<std::uint64_t>(std::llround(static_cast<double>(gaps->Lost()) * share));
}

}  // namespace

void KernelDrops::TakeOff(const PortDrops& drops, std::vector<Harvest>& harvests) {
  const PortDrops before = std::exchange(left_, drops);
  PortDrops all = drops;
  for (const auto& [port, datagrams] : before) all[port] += datagrams;
  for (const auto& [port, datagrams] : all) {
    if (datagrams == 0) continue;
    const auto each = [&harvests, at = port](const auto& visit) {
      for (Harvest& harvest : harvests) {
        harvest.exporters.ForEach([&](const ExportSource& source, ExporterCounts& counts) {
          if (counts.arrives_at == at) visit(source, counts);
        });
      }
    };
    double lost = 0;
    each([&](const auto& source, const auto& counts) { lost += DatagramsLost(source, counts); });
    const auto dropped = static_cast<double>(datagrams);
    const double share = lost > dropped ? dropped / lost : 1;
    each([&](const auto&, auto& counts) {
      TakeShareOff(share, &counts.gaps);
      TakeShareOff(share, &counts.sample_gaps);
    });
    const double unanswered = std::max(dropped - lost, 0.0);
    left_[port] = std::min(left_[port], static_cast<std::uint64_t>(unanswered));
  }
}

}  // namespace flow::host
