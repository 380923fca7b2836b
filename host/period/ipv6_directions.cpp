#include "host/period/ipv6_directions.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/endpoint.h"

namespace flow::host {
namespace {

// By what is at home: nothing, the destination, the source, both.
constexpr std::array<std::string_view, 4> kKeys = {"DIR_TRANSIT", "DIR_INTOHOME", "DIR_OUTOFHOME",
                                                   "DIR_WITHINHOME"};
std::size_t WayOf(bool from_home, bool to_home) {
  return (from_home ? std::size_t{2} : 0) + (to_home ? 1 : 0);
}

struct Volume {
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
};
using Ways = std::array<Volume, kKeys.size()>;

// "06D:20010DB8000000000000000000000001:p-0050_20010DB8000000000000000000000002:p-C738_...".
constexpr std::size_t kKindAt = 2;
constexpr std::size_t kAddress = 32;
constexpr std::size_t kSideA = 4;
constexpr std::size_t kSideB = kSideA + kAddress + 8;

std::optional<IpAddress> AddressAt(std::string_view key, std::size_t at) {
  const std::string_view digits = key.substr(at, kAddress);
  if (!std::ranges::all_of(digits, absl::ascii_isxdigit)) return std::nullopt;
  const std::string text = absl::HexStringToBytes({digits.data(), digits.size()});
  std::array<std::uint8_t, kAddress / 2> bytes{};
  std::ranges::copy(text, bytes.begin());
  return IpAddress::Ipv6(bytes);
}

void AddFlow(const HomeRanges& home, std::string_view key, const FlowTotals& flow, Ways* ways) {
  if (key.size() < kSideB + kAddress || key[kKindAt] != 'D') return;
  // Where flows count events rather than bytes, they have no volume.
  if (flow.bytes[0] + flow.bytes[1] == 0) return;
  const auto a = AddressAt(key, kSideA);
  const auto b = AddressAt(key, kSideB);
  if (!a || !b) return;
  const bool a_home = home.Contains(*a);
  const bool b_home = home.Contains(*b);
  Volume& forward = (*ways)[WayOf(a_home, b_home)];
  forward.bytes += flow.meters[0];
  forward.packets += flow.meters[2];
  Volume& reverse = (*ways)[WayOf(b_home, a_home)];
  reverse.bytes += flow.meters[1];
  reverse.packets += flow.meters[3];
}

}  // namespace

void AddIpv6Directions(const HomeRanges& home, StatsStore* store) {
  const auto totals = std::ranges::find_if(
      store->groups(), [](const auto& group) { return group->info.key_kind == KeyKind::kTotals; });
  if (totals == store->groups().end()) return;
  Ways ways;
  store->flow_group().table.ForEach([&](std::string_view key, const std::uint64_t* values) {
    AddFlow(home, key, StatsStore::Flow(values), &ways);
  });
  for (std::size_t way = 0; way < kKeys.size(); ++way) {
    if (ways[way].packets == 0 && ways[way].bytes == 0) continue;
    std::uint64_t* const row = (*totals)->table.FindOrAdd(kKeys[way]);
    row[0] += ways[way].bytes;
    row[1] += ways[way].packets;
  }
}

}  // namespace flow::host
