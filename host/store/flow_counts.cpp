// SPDX-License-Identifier: Apache-2.0
#include "host/store/flow_counts.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "host/base/endpoint.h"
#include "host/base/error.h"

namespace flow::host {
namespace {

// What is read at a start takes some seconds at most; nobody listens meanwhile.
constexpr std::int64_t kMostRows = 5'000'000;

constexpr std::uint64_t kIcmp = 1;
constexpr std::uint64_t kTcp = 6;
constexpr std::uint64_t kUdp = 17;
constexpr std::uint64_t kIcmpv6 = 58;
constexpr std::uint64_t kFirstClientPort = 1024;

// Applications of protocols without ports have numbers behind those of ports.
constexpr std::uint64_t kFirstProtocol = 65536;
struct ProtocolName {
  std::uint64_t protocol;
  std::string_view name;
};
constexpr ProtocolName kProtocols[] = {
    {kIcmp, "icmp"}, {47, "gre"}, {50, "ipsec-esp"}, {kIcmpv6, "icmpv6"}};

std::string_view NameOf(std::uint64_t protocol) {
  const auto* const found = std::ranges::find(kProtocols, protocol, &ProtocolName::protocol);
  return found == std::end(kProtocols) ? std::string_view() : found->name;
}

// In the order of the query.
enum Place : std::uint8_t {
  kSource,
  kDestination,
  kSourcePort,
  kDestinationPort,
  kProtocol,
  kBytes,
  kPackets,
  kBytesBack,
  kPacketsBack,
  kRecords,
  kExporter,
  kInput,
  kOutput,
  kSourceAs,
  kDestinationAs,
};
constexpr char kRows[] =
    "SELECT src, dst, sport, dport, proto, bytes, packets, bytes_rev, packets_rev, records, "
    "exporter, in_if, out_if, src_as, dst_as FROM flows WHERE minute >= ?1 AND minute < ?2 AND "
    "rowid BETWEEN (SELECT min(first_row) FROM minutes WHERE minute >= ?1) AND min(?3, "
    "(SELECT max(last_row) FROM minutes WHERE minute < ?2))";

std::uint64_t Number(const Statement& row, Place place) {
  return static_cast<std::uint64_t>(row.Integer(place));
}

}  // namespace

struct FlowCounts::Side {
  Key address;
  bool is_ipv6;
  bool is_home;
  std::uint64_t port;
  std::uint64_t as_number;
};

// What went from one side of a flow to the other.
struct FlowCounts::Way {
  const Side& source;
  const Side& destination;
  std::uint64_t protocol;
  std::uint64_t bytes;
  std::uint64_t packets;
};

// By the names that groups have for them; others are zero, or the rows will not agree.
constexpr FlowCounts::Column FlowCounts::kColumns[] = {
    {"bytes", &Sums::bytes},
    {"packets", &Sums::packets},
    {"bytes_in", &Sums::in},
    {"bytes_out", &Sums::out},
    {"bytes_home", &Sums::home},
    {"bytes_not_home", &Sums::outside},
    {"recv", &Sums::in},
    {"xmit", &Sums::out},
    {"flows", &Sums::records},
    {"bytes_source_outside", &Sums::out},
    {"bytes_destination_outside", &Sums::in},
};

void FlowCounts::Sums::Add(const Sums& other) {
  bytes += other.bytes;
  packets += other.packets;
  in += other.in;
  out += other.out;
  home += other.home;
  outside += other.outside;
  records += other.records;
}

bool FlowCounts::Complete(std::int64_t bucket, std::int64_t seconds, TierCounts* counts) {
  const auto is_whole = [](const auto& sums) { return sums->IsWhole(); };
  const auto& groups = counts->groups();
  if (std::ranges::all_of(groups, is_whole)) return true;
  if (!Read(bucket, seconds)) return false;
  for (const auto& sums : groups) {
    const auto* const id = std::ranges::find(kGroupIds, sums->info().id);
    if (is_whole(sums) || id == std::end(kGroupIds)) continue;
    GroupSums told = SumsOf(static_cast<Group>(id - std::begin(kGroupIds)), sums->info());
    if (told.Explains(*sums)) *sums = std::move(told);
  }
  return std::ranges::all_of(groups, is_whole);
}

bool FlowCounts::Read(std::int64_t bucket, std::int64_t seconds) {
  for (auto& group : sums_) group.clear();
  exporters_.clear();
  const std::int64_t hour = bucket / kHourSeconds * kHourSeconds;
  const std::int64_t known =
      counters_.Ask(fmt::format("SELECT rows FROM flow_files WHERE hour = {}", hour)).value_or(0);
  const std::string path = FlowFilePath(options_.directory, hour);
  if (known == 0 || !std::filesystem::exists(path)) return false;
  try {
    Database file = Database::ToRead(path);
    Statement exporters = file.Prepare("SELECT id, text FROM exporters");
    while (exporters.Step()) {
      exporters_.emplace(exporters.Integer(0), exporters.Text(1));
    }
    const std::int64_t from = (bucket - hour) / kMinuteSeconds;
    Statement rows = file.Prepare(kRows);
    rows.Bind(1, from).Bind(2, from + seconds / kMinuteSeconds).Bind(3, known);
    while (rows.Step()) {
      if (++rows_read_ > kMostRows) return false;
      CountFlow(rows);
    }
  } catch (const HostError&) {
    return false;  // the bounds tell
  }
  return true;
}

void FlowCounts::CountFlow(const Statement& row) {
  const auto side = [&](Place address, Place port, Place as_number) {
    Side made{{}, false, false, Number(row, port), Number(row, as_number)};
    const auto bytes = row.Bytes(address);
    made.is_ipv6 = bytes.size() == 16;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      std::uint64_t& half = made.is_ipv6 && i < 8 ? made.address.first : made.address.second;
      half = half << 8 | bytes[i];
    }
    // Meters know homes of IPv4 alone, and take all others to be at 0.0.0.0.
    made.is_home =
        options_.home.Contains(made.is_ipv6 ? 0 : static_cast<std::uint32_t>(made.address.second));
    return made;
  };
  const Side source = side(kSource, kSourcePort, kSourceAs);
  const Side destination = side(kDestination, kDestinationPort, kDestinationAs);
  const std::uint64_t protocol = Number(row, kProtocol);
  const Way there{source, destination, protocol, Number(row, kBytes), Number(row, kPackets)};
  const Way back{destination, source, protocol, Number(row, kBytesBack), Number(row, kPacketsBack)};
  const bool has_back = (back.bytes | back.packets) != 0;
  if (!has_back || (there.bytes | there.packets) != 0) CountWay(there);
  if (has_back) CountWay(back);
  // Every record counts at both interfaces, whichever way it tells of.
  const std::uint64_t all = there.bytes + back.bytes;
  const Sums at_source{
      .bytes = all, .in = there.bytes, .out = back.bytes, .records = Number(row, kRecords)};
  Sums at_destination = at_source;
  std::swap(at_destination.in, at_destination.out);
  Add(kInterfaces, {Number(row, kExporter), Number(row, kInput)}, at_source);
  Add(kInterfaces, {Number(row, kExporter), Number(row, kOutput)}, at_destination);
}

void FlowCounts::CountWay(const Way& way) {
  const auto count = [&](const Side& side, bool is_source) {
    Sums sums{.bytes = way.bytes};
    (is_source ? sums.out : sums.in) = way.bytes;
    if (!side.is_home) Add(kAsNumbers, {0, side.as_number}, sums);
    if (side.is_ipv6) return Add(kHosts6, side.address, sums);
    sums.packets = way.packets;
    (side.is_home ? sums.home : sums.outside) = way.bytes;
    Add(kHosts, side.address, sums);
  };
  count(way.source, true);
  count(way.destination, false);
  CountPorts(way);
}

void FlowCounts::CountPorts(const Way& way) {
  const Sums sums{.bytes = way.bytes};
  if (way.protocol != 0 && way.protocol != kTcp && way.protocol != kUdp) {
    const bool is_counted =
        way.protocol == kIcmpv6 ? way.source.is_ipv6 : !NameOf(way.protocol).empty();
    if (is_counted) Add(kApplications, {0, kFirstProtocol + way.protocol}, sums);
    return;
  }
  // The well-known one, the source looked at first, or both.
  const bool source_is_service = way.source.port < kFirstClientPort;
  const bool destination_is_service = way.destination.port < kFirstClientPort;
  if (source_is_service || !destination_is_service) Add(kApplications, {0, way.source.port}, sums);
  if (!source_is_service) Add(kApplications, {0, way.destination.port}, sums);
}

GroupSums FlowCounts::SumsOf(Group group, const GroupInfo& info) const {
  GroupSums told(info);
  std::vector<std::uint64_t Sums::*> picks;
  for (const ValueColumn& column : told.columns()) {
    const auto* const known = std::ranges::find(kColumns, column.name, &Column::name);
    const bool is_told = known != std::end(kColumns) && !column.meters.empty();
    picks.push_back(is_told ? known->value : nullptr);
  }
  std::vector<std::uint64_t> values(picks.size());
  for (const auto& [key, sums] : sums_[group]) {
    std::ranges::transform(picks, values.begin(), [&sums = sums](std::uint64_t Sums::*pick) {
      return pick == nullptr ? 0 : sums.*pick;
    });
    told.Add(TextOf(group, key), values.data());
  }
  return told;
}

std::string FlowCounts::TextOf(Group group, const Key& key) const {
  const auto [high, low] = key;
  switch (group) {
    case kHosts:
      return IpAddress::Ipv4(static_cast<std::uint32_t>(low)).Text();
    case kHosts6: {
      std::array<std::uint8_t, 16> bytes{};
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>((i < 8 ? high : low) >> (56 - 8 * (i % 8)));
      }
      return IpAddress::Ipv6(bytes).Text();
    }
    case kApplications:
      return low < kFirstProtocol ? fmt::format("{}", low)
                                  : std::string(NameOf(low - kFirstProtocol));
    case kInterfaces: {
      const auto exporter = exporters_.find(high);
      return fmt::format("{} if {}", exporter == exporters_.end() ? "0.0.0.0" : exporter->second,
                         low);
    }
    default:
      return fmt::format("AS{}", low);
  }
}

}  // namespace flow::host
