// SPDX-License-Identifier: Apache-2.0
#include "host/engine/shown_flow.h"

#include <algorithm>
#include <utility>

#include "flowhandlers/session_keys.h"

namespace flow::host {
namespace {

constexpr std::size_t kHead = 4;  // "06C:"
constexpr std::size_t kPortDigits = 4;
constexpr std::size_t kBehindHost = 8;  // ":p-01BB_"
constexpr std::string_view kServices[] = {"0035", "0050", "01BB"};
constexpr std::string_view kAnyPort = "FFFF";

// Where the parts of a key stand.
struct Places {
  std::size_t side;  // how long one is
  std::size_t exporter;

  explicit Places(std::string_view key)
      : side((key[2] == 'D' ? kIpv6KeyLength : kIpv4KeyLength) + kBehindHost),
        exporter(kHead + 2 * side) {}
  [[nodiscard]] std::size_t PortOf(std::size_t number) const {
    return kHead + (number + 1) * side - 1 - kPortDigits;
  }
};

bool IsService(std::string_view port) {
  return std::ranges::find(kServices, port) != std::end(kServices);
}

// The client comes first where keys are ordered by their ports, as those of NetFlow are.
void MergePorts(const Places& places, char* key, FlowTotals* flow) {
  char* const a = key + places.PortOf(0);
  char* const b = key + places.PortOf(1);
  const std::string_view a_port(a, kPortDigits);
  const std::string_view b_port(b, kPortDigits);
  if (IsService(b_port)) {
    std::ranges::copy(kAnyPort, a);
  } else if (IsService(a_port)) {
    const bool by_port = a_port >= b_port;
    std::ranges::copy(kAnyPort, b);
    if (!by_port) return;
    std::swap_ranges(key + kHead, key + kHead + places.side, key + kHead + places.side);
    TurnRound(flow);
  }
}

}  // namespace

void TurnRound(FlowTotals* flow) {
  std::swap(flow->meters[0], flow->meters[1]);
  std::swap(flow->meters[2], flow->meters[3]);
  std::swap(flow->bytes[0], flow->bytes[1]);
  std::swap(flow->packets[0], flow->packets[1]);
  std::swap(flow->as_numbers[0], flow->as_numbers[1]);
  std::swap(flow->macs[0], flow->macs[1]);
}

std::string_view ShownFlow::Of(std::string_view key, FlowTotals* flow) {
  constexpr std::size_t kShortest = 63;
  if (key.size() < kShortest || key.size() > key_.size()) return key;
  const Places places(key);
  if (key.size() < places.exporter + kIpv4KeyLength) return key;
  char* const out = key_.data();
  std::ranges::copy(key, out);
  MergePorts(places, out, flow);
  // That of merged sources is shorter where sFlow wrote it.
  const std::string_view exporter = key.substr(places.exporter);
  if (exporter.starts_with(std::string_view(kMergedExporter, kIpv4KeyLength))) {
    return {out, key.size()};
  }
  WriteText(kMergedExporter, out + places.exporter);
  return {out, places.exporter + sizeof(kMergedExporter) - 1};
}

}  // namespace flow::host
