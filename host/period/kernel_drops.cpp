// SPDX-License-Identifier: Apache-2.0
#include "host/period/kernel_drops.h"

#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace flow::host {
namespace {

// What was described of exporters' datagrams, in whatever lanes.
struct Described {
  std::uint64_t datagrams = 0;
  std::uint64_t records = 0;
};
using DescribedBySource = absl::flat_hash_map<ExportSource, Described>;

DescribedBySource DescribedIn(std::vector<Harvest>& harvests) {
  DescribedBySource all;
  for (Harvest& harvest : harvests) {
    harvest.exporters.ForEach([&all](const ExportSource& source, const ExporterCounts& counts) {
      Described& described = all[source];
      described.datagrams += counts.datagrams;
      described.records += counts.books.described;
    });
  }
  return all;
}

// The datagrams that an exporter's gaps stand for; of flows and records as many as usual in each.
double DatagramsLost(const ExportSource& source, const ExporterCounts& counts,
                     const DescribedBySource& all) {
  const auto lost = static_cast<double>(counts.gaps.Lost());
  if (source.version.sflow || source.version.number == 9) return lost;
  const Described& described = all.at(source);
  if (described.datagrams == 0 || described.records < described.datagrams) return lost;
  return lost * static_cast<double>(described.datagrams) / static_cast<double>(described.records);
}

void TakeShareOff(double share, SequenceGaps* gaps) {
  gaps->here += static_cast<std::uint64_t>(std::llround(static_cast<double>(gaps->Lost()) * share));
}

}  // namespace

void KernelDrops::TakeOff(const PortDrops& of_sockets, std::vector<Harvest>& harvests) {
  PortDrops drops = of_sockets;
  for (const Harvest& harvest : harvests) {
    for (const auto& [port, datagrams] : harvest.dropped_unseen) drops[port] += datagrams;
  }
  const PortDrops before = std::exchange(left_, drops);
  PortDrops all = drops;
  for (const auto& [port, datagrams] : before) all[port] += datagrams;
  if (all.empty()) return;
  const DescribedBySource described = DescribedIn(harvests);
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
    each([&](const auto& source, const auto& counts) {
      lost += DatagramsLost(source, counts, described);
    });
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
