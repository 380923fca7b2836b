// SPDX-License-Identifier: Apache-2.0
#include "host/names/group_catalog.h"

#include <absl/strings/match.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "host/border/component_catalog.h"

namespace flow::host {
namespace {

struct HostMeter {
  int index;
  std::string_view id;
  std::string_view title;
  Unit unit = Unit::kBytes;
};

struct HostGroup {
  GUID guid;
  std::string_view id;
  std::string_view title;
  std::string_view key_title;
  KeyKind key_kind;
  std::span<const HostMeter> meters;
  std::string_view ranking = "0";  // digits of the meters that rank the keys
  RecordWord word = RecordWord::kNone;
};

constexpr HostMeter kBytes[] = {{0, "bytes", "Bytes"}};
constexpr HostMeter kBytesPackets[] = {{0, "bytes", "Bytes"},
                                       {1, "packets", "Packets", Unit::kPackets}};
constexpr HostMeter kHosts[] = {{0, "bytes", "Total"},
                                {1, "bytes_in", "Received"},
                                {2, "bytes_out", "Sent"},
                                {3, "packets", "Packets", Unit::kPackets},
                                {6, "bytes_home", "As home"},
                                {7, "bytes_not_home", "As outside"},
                                {10, "tcp_connections", "Connections", Unit::kCount}};
constexpr HostMeter kHosts6[] = {
    {0, "bytes", "Total"}, {1, "bytes_in", "Received"}, {2, "bytes_out", "Sent"}};
constexpr HostMeter kSubnets[] = {{0, "bytes", "Total"},
                                  {1, "bytes_in", "Received"},
                                  {2, "bytes_out", "Sent"},
                                  {3, "packets", "Packets", Unit::kPackets}};
constexpr HostMeter kApplications[] = {{0, "bytes", "Total"},
                                       {2, "bytes_into_home", "Into home"},
                                       {3, "bytes_out_of_home", "Out of home"},
                                       {4, "connections", "Connections", Unit::kCount},
                                       {5, "bytes_within_home", "Within home"},
                                       {6, "bytes_transit", "Transit"}};
constexpr HostMeter kTexts[] = {{0, "bytes", "Total"},
                                {1, "bytes_into_home", "Into home"},
                                {2, "bytes_out_of_home", "Out of home"},
                                {3, "bytes_transit", "Transit"},
                                {4, "bytes_within_home", "Within home"},
                                {5, "flows", "Flows", Unit::kCount}};
constexpr HostMeter kPrefixes[] = {{0, "bytes", "Total"},
                                   {1, "bytes_source_outside", "From outside"},
                                   {2, "bytes_destination_outside", "To outside"},
                                   {3, "flows", "Flows", Unit::kCount},
                                   {4, "bytes_source_home", "From home"},
                                   {5, "bytes_destination_home", "To home"}};
constexpr HostMeter kAsNumbers[] = {{0, "bytes", "Total"},
                                    {1, "bytes_source_outside", "From outside"},
                                    {2, "bytes_destination_outside", "To outside"},
                                    {3, "bytes_source_home", "From home"},
                                    {4, "bytes_destination_home", "To home"}};
constexpr HostMeter kAsInterfaces[] = {{0, "bytes_source", "From AS, in"},
                                       {1, "bytes_destination", "To AS, out"}};
constexpr HostMeter kMacs[] = {{0, "bytes_source", "Sent"}, {1, "bytes_destination", "Received"}};
constexpr HostMeter kVlans[] = {
    {0, "bytes", "Total"}, {1, "bytes_in", "In"}, {2, "bytes_out", "Out"}};
constexpr HostMeter kFlows[] = {{0, "bytes_forward", "Bytes ->"},
                                {1, "bytes_reverse", "Bytes <-"},
                                {2, "packets_forward", "Packets ->", Unit::kPackets},
                                {3, "packets_reverse", "Packets <-", Unit::kPackets}};

// In the order of the summary. The plug-in's groups come after the first.
constexpr HostGroup kHostGroups[] = {
    {MakeGuid("393B5EBC-AB41-4387-8F31-8077DB917336"), "totals", "Totals", "Traffic",
     KeyKind::kTotals, kBytesPackets},
    {MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86"), "hosts", "Hosts", "Host", KeyKind::kIpv4,
     kHosts},
    {MakeGuid("9807E97A-6CD2-442F-BB18-8C104C8EB204"), "hosts6", "IPv6 hosts", "Host",
     KeyKind::kIpv6, kHosts6},
    {MakeGuid("C51B48D4-7876-479E-B0D9-BD9EFF03CE2E"), "applications", "Applications",
     "Application", KeyKind::kApplication, kApplications},
    {MakeGuid("322AFE57-BA50-47B1-BE5C-EBC05BCC186B"), "application_tags", "Application tags",
     "Tag", KeyKind::kText, kApplications, "0", RecordWord::kApplication},
    {MakeGuid("E89BCD56-30AD-40F5-B1C8-8B7683F440BD"), "protocols", "IP protocols", "Protocol",
     KeyKind::kProtocol, kBytes},
    {MakeGuid("9F5AD3A9-C74D-46D8-A8A8-DCDD773730BA"), "ethertypes", "IPv4 and IPv6", "Ethertype",
     KeyKind::kEthertype, kBytes},
    {MakeGuid("429B65AD-CDA4-452E-A852-24D8A3D0FBB3"), "subnets", "Subnets", "Subnet",
     KeyKind::kSubnet, kSubnets},
    {MakeGuid("2BE2A3B6-613D-4216-0737-3684E824EA33"), "prefixes", "Prefixes", "Prefix",
     KeyKind::kText, kPrefixes},
    {MakeGuid("467AE21F-F2B7-4509-EA69-514CF2352D36"), "prefixes6", "IPv6 prefixes", "Prefix",
     KeyKind::kText, kPrefixes},
    {MakeGuid("120A3124-E2BB-47BD-6C64-71BBB861C428"), "as_numbers", "AS numbers", "AS",
     KeyKind::kAsNumber, kAsNumbers, "0", RecordWord::kAsNumber},
    {MakeGuid("1D86CAB7-B4C4-433E-BCB9-C779A4244D70"), "as_interfaces", "AS numbers by interface",
     "AS on interface", KeyKind::kAsInterface, kAsInterfaces, "01", RecordWord::kAsInterface},
    {MakeGuid("79693CA3-ED3C-43B3-E12A-A3F64B125E4F"), "ip_next_hops", "IP next hops", "Next hop",
     KeyKind::kIpv4, kBytes, "0", RecordWord::kIpNextHop},
    {MakeGuid("FC61EC07-BED0-4734-C64C-F5932FD8B943"), "bgp_next_hops", "BGP next hops", "Next hop",
     KeyKind::kIpv4, kBytes, "0", RecordWord::kBgpNextHop},
    {MakeGuid("7FAB8F84-C580-424B-2BA4-B2546D2DB15A"), "vrfs", "Routing instances", "VRF",
     KeyKind::kText, kBytes, "0", RecordWord::kVrf},
    {MakeGuid("0EC72E9E-3AD2-43FD-8173-74693EEA08D0"), "vlans", "VLANs", "VLAN", KeyKind::kVlan,
     kVlans},
    {MakeGuid("4B09BD22-3B99-40FC-8215-94A430EA0A35"), "macs", "MAC addresses", "MAC",
     KeyKind::kText, kMacs, "01", RecordWord::kMac},
    {MakeGuid("79F60A94-44BD-4C55-891A-77823D59161B"), "mac_pairs", "MAC pairs",
     "Source -> destination", KeyKind::kMacPair, kBytes},
    {MakeGuid("86A8880D-F4B2-4E49-A4FA-718880CAA976"), "application_ids", "Application ids",
     "Application", KeyKind::kText, kTexts, "0", RecordWord::kApplication},
    {MakeGuid("9021F5D3-FEFB-401B-99EC-EF2ACD088578"), "user_ids", "User ids", "User",
     KeyKind::kText, kTexts, "0", RecordWord::kUser},
    {kFlowGroup, "flows", "Flows", "Flow", KeyKind::kSession, kFlows, "01", RecordWord::kFlow},
};

GroupInfo FromTable(const HostGroup& row) {
  GroupInfo group;
  group.guid = row.guid;
  group.id = row.id;
  group.title = row.title;
  group.key_title = row.key_title;
  group.key_kind = row.key_kind;
  for (const HostMeter& meter : row.meters) {
    group.meters.push_back(
        {meter.index, std::string(meter.id), std::string(meter.title), meter.unit});
  }
  for (const char digit : row.ranking) group.ranking.push_back(digit - '0');
  return group;
}

// "Flow Volume" becomes flow_volume.
std::string IdOf(std::string_view title) {
  std::string id;
  for (const char c : title) {
    const auto byte = static_cast<unsigned char>(c);
    id.push_back(std::isalnum(byte) != 0 ? static_cast<char>(std::tolower(byte)) : '_');
  }
  return id;
}

// The plug-in's meters count per second; the host adds up, so a byte rate becomes bytes.
GroupInfo FromPlugin(const GroupDescription& description) {
  GroupInfo group;
  group.guid = description.guid;
  group.id = IdOf(description.name);
  group.title = fmt::format("{}: {}", description.name, description.description);
  group.key_title = "Key";
  group.key_kind = KeyKind::kGuess;
  group.from_plugin = true;
  group.ranking = {0};
  if (description.bucket_ms > 0) group.bucket_ms = description.bucket_ms;
  group.top_n = description.top_n ? description.top_n_count : 0;
  if (description.track_high > 0 && description.track_low <= description.track_high) {
    group.track_high = description.track_high;
    group.track_low = description.track_low;
  }
  for (const GroupMeterDescription& meter : description.meters) {
    if (meter.index < 0) continue;
    group.meters.push_back({meter.index, IdOf(meter.name), meter.name,
                            meter.units == "Bps" ? Unit::kBytes : Unit::kCount});
  }
  return group;
}

}  // namespace

std::vector<std::string_view> HostGroupIds() {
  std::vector<std::string_view> ids;
  for (const HostGroup& group : kHostGroups) ids.push_back(group.id);
  return ids;
}

GroupCatalog::GroupCatalog(std::span<const GroupDescription> plugin_groups) {
  for (const HostGroup& row : kHostGroups) {
    groups_.push_back(FromTable(row));
    if (groups_.size() > 1) continue;
    for (const GroupDescription& description : plugin_groups) {
      groups_.push_back(FromPlugin(description));
    }
  }
}

void GroupCatalog::HearRecords() {
  for (GroupInfo& group : groups_) {
    const auto row = std::ranges::find(kHostGroups, group.id, &HostGroup::id);
    if (row != std::end(kHostGroups)) group.word = row->word;
  }
}

Timestamp GroupCatalog::ShortestBucket() const {
  constexpr Timestamp kMicrosPerMilli = 1000;
  return kMicrosPerMilli * std::ranges::min_element(groups_, {}, &GroupInfo::bucket_ms)->bucket_ms;
}

const GroupInfo* GroupCatalog::Find(const std::string& name) const {
  const auto found = std::ranges::find_if(groups_, [&](const GroupInfo& group) {
    return absl::EqualsIgnoreCase(group.id, name) || absl::EqualsIgnoreCase(group.title, name);
  });
  return found == groups_.end() ? nullptr : &*found;
}

}  // namespace flow::host
