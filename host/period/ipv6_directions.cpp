// SPDX-License-Identifier: Apache-2.0
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
constexpr std::array<std::string_view, Ipv6Directions::kWays> kKeys = {
    "DIR_TRANSIT", "DIR_INTOHOME", "DIR_OUTOFHOME", "DIR_WITHINHOME"};
std::size_t WayOf(bool from_home, bool to_home) {
  return (from_home ? std::size_t{2} : 0) + (to_home ? 1 : 0);
}

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

}  // namespace

void Ipv6Directions::AddFlow(std::string_view key, const FlowTotals& flow) {
  if (key.size() < kSideB + kAddress || key[kKindAt] != 'D') return;
  // Where flows count events rather than bytes, they have no volume.
  if (flow.bytes[0] + flow.bytes[1] == 0) return;
  const auto a = AddressAt(key, kSideA);
  const auto b = AddressAt(key, kSideB);
  if (!a || !b) return;
  const bool a_home = home_.Contains(*a);
  const bool b_home = home_.Contains(*b);
  Volume& forward = ways_[WayOf(a_home, b_home)];
  forward.bytes += flow.meters[0];
  forward.packets += flow.meters[2];
  Volume& reverse = ways_[WayOf(b_home, a_home)];
  reverse.bytes += flow.meters[1];
  reverse.packets += flow.meters[3];
}

void Ipv6Directions::Add(const FlowTable& flows) {
  SessionText text;
  flows.rows().ForEach([&](std::string_view key, const std::uint64_t* values) {
    if (!IsIpv4(key)) AddFlow(text.Of(key), flows.Whole(values));
  });
}

void Ipv6Directions::AddTo(StatsStore* store) {
  const auto totals = std::ranges::find_if(
      store->groups(), [](const auto& group) { return group->info.key_kind == KeyKind::kTotals; });
  if (totals == store->groups().end()) return;
  for (std::size_t way = 0; way < kKeys.size(); ++way) {
    if (ways_[way].packets == 0 && ways_[way].bytes == 0) continue;
    std::uint64_t* const row = (*totals)->table.FindOrAdd(kKeys[way]);
    row[0] += ways_[way].bytes;
    row[1] += ways_[way].packets;
  }
  ways_ = {};
}

}  // namespace flow::host
