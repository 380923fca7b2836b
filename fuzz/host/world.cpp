// SPDX-License-Identifier: Apache-2.0
#include "fuzz/host/world.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "flowhandlers/entry_points.h"
#include "fuzz/host/memory_folder.h"
#include "fuzz/host/promise.h"
#include "fuzz/host/sequence.h"
#include "fuzz/policies.h"
#include "host/base/console.h"
#include "host/base/memory_budget.h"
#include "host/border/component_catalog.h"
#include "host/capture/made_headers.h"
#include "host/intake/port_map.h"
#include "host/names/group_catalog.h"
#include "host/policy/default_policies.h"
#include "tests/support/policy_file.h"

namespace flow::fuzz {
namespace {

using host::ComponentDescription;
using host::Lane;
using host::Timestamp;
using host::UdpPacket;

IOmbrelComponentPackage& Package() {
  IOmbrelComponentPackage* package = nullptr;
  SqPIInit();
  Demand(SqPIGetPackage(&package) == 0, "the plug-in has components");
  return *package;
}

// Without texts for people, and of the meters the last one, which tells how many there are: every
// store copies what it is given, and a run makes a dozen.
std::vector<host::GroupInfo> GroupsOf(std::span<const ComponentDescription> components) {
  std::vector<host::GroupDescription> described;
  for (const ComponentDescription& component : components) {
    if (component.group) described.push_back(*component.group);
  }
  host::GroupCatalog catalog(described);
  catalog.HearRecords();
  std::vector<host::GroupInfo> groups = catalog.groups();
  for (host::GroupInfo& group : groups) {
    group.title.clear();
    group.key_title.clear();
    host::MeterInfo last;
    last.index = static_cast<int>(group.Columns()) - 1;
    group.meters = {last};
    group.ranking.clear();
  }
  return groups;
}

std::vector<ComponentDescription> WithoutSFlow(std::vector<ComponentDescription> components) {
  std::erase_if(components, [](const ComponentDescription& component) {
    return (component.handler && component.handler->protocol == host::kSFlowProtocol) ||
           (component.meter && component.meter->protocol == host::kSFlowProtocol);
  });
  return components;
}

// What all worlds share, as all runs on a machine would.
struct Surroundings {
  Surroundings() {
    // With a budget meters may be replaced; this one no input comes near to.
    constexpr std::size_t kBudget = std::size_t{8} << 30;
    host::ShareMemory(kBudget, 1);
    settings.config_directory = folder.path();
    settings.data_directory = folder.path();
    settings.home = host::HomeRanges({{host::IpAddress::Ipv4(0x0A000000), 8}});
  }

  MemoryFolder folder;
  IOmbrelComponentPackage& package = Package();
  std::vector<ComponentDescription> components = host::DescribeComponents(package);
  std::vector<ComponentDescription> netflow_components = WithoutSFlow(components);
  std::vector<host::GroupInfo> groups = GroupsOf(components);
  host::PortMap ports{components, {}};
  host::SiteSettings settings;
  host::Console console{-1};
};

Surroundings& Around() {
  static Surroundings around;
  return around;
}

host::LaneParts PartsFor(host::ChannelHub& channels, bool has_sflow) {
  Surroundings& around = Around();
  return {around.package, has_sflow ? around.components : around.netflow_components,
          around.groups,  around.settings,
          channels,       around.console};
}

// A datagram as it comes from a socket; it stands in *space.
UdpPacket PacketOf(const Datagram& datagram, Timestamp now, std::vector<std::uint8_t>* space) {
  constexpr std::size_t kMost = 65507;
  const test::Exporter exporter = ExporterOf(datagram.exporter);
  UdpPacket packet;
  packet.time = now;
  packet.payload_length = std::min(datagram.payload.size(), kMost);
  packet.source = {host::IpAddress::Ipv4(exporter.address.value), exporter.port};
  space->resize(host::kMadeHeaders + packet.payload_length);
  PutMadeHeaders(packet, space->data());
  std::copy_n(datagram.payload.begin(), packet.payload_length, space->begin() + host::kMadeHeaders);
  packet.ip = *space;
  packet.udp_offset = host::kMadeUdpOffset;
  if ((datagram.exporter & kOverIpv6) != 0) {
    packet.source.address =
        *host::IpAddress::Parse("2001:db8::" + std::to_string(datagram.exporter & 1));
  }
  return packet;
}

// What each bit of a policy's number switches on: above all what meters keep of exporters, and for
// whom. Short policies, since each lane reads its own.
constexpr std::string_view kSwitches[] = {"TemplatesPerDomain", "AllowVariableLengthStrings",
                                          "EnableShimTunnel",   "SharePaddedTemplates",
                                          "UseSamplingSpace",   "MeterZeroFlows"};
constexpr std::uint8_t kPerDomain = 0x01;
constexpr std::uint8_t kStaticTemplates = 0x80;

std::string PolicyText(std::uint8_t number) {
  // Flows of several exporters that are one take part of what they say from whoever came last,
  // which lanes cannot tell of each other.
  std::string settings =
      "<CountLeftOut>true</CountLeftOut><MergeMultipleSources>false</MergeMultipleSources>"
      "<ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds>";
  for (std::size_t i = 0; i < std::size(kSwitches); ++i) {
    if ((number >> i & 1) == 0) continue;
    settings += "<" + std::string(kSwitches[i]) + ">true</" + std::string(kSwitches[i]) + ">";
  }
  return test::PolicyXml(settings, (number & kStaticTemplates) == 0 ? "" : PolicyOf(2).beside);
}

// The policy that stands in each file, by its path.
std::map<std::string, int, std::less<>>& PoliciesInPlace() {
  static std::map<std::string, int, std::less<>> in_place;
  return in_place;
}

void WritePolicy(std::string_view name, std::uint8_t number) {
  static std::int64_t modified = 1'600'000'000;
  const std::string path = Around().folder.path() + "/" + std::string(name);
  const auto [known, is_new] = PoliciesInPlace().try_emplace(path, number);
  if (is_new || std::exchange(known->second, number) != number) {
    test::WriteFile(path, PolicyText(number));
  }
  test::SetModificationTime(path, ++modified);
}

}  // namespace

void UsePolicy(std::uint8_t number) {
  for (const std::string_view name : host::PolicyFileNames()) WritePolicy(name, number);
}

// Once templates are kept by domain they stay so: meters have those of domains where the setting is
// turned off again, and do not look at them, while fresh ones would take them for all domains.
void EditPolicy(std::uint8_t number) {
  const std::string path = Around().folder.path() + "/" + std::string(host::kNetflowPolicyFile);
  const int before = PolicyAt(path);
  WritePolicy(host::kNetflowPolicyFile, static_cast<std::uint8_t>(number | (before & kPerDomain)));
}

int PolicyAt(std::string_view path) {
  const auto found = PoliciesInPlace().find(path);
  return found == PoliciesInPlace().end() ? -1 : found->second;
}

World::World(int lanes, bool has_sflow, Timestamp now)
    : lanes_(PartsFor(channels_, has_sflow), lanes, host::LaneMode::kInline),
      intake_(Around().ports, lanes_, stand_ins_),
      counted_(Around().groups) {
  lanes_.ForEach([&](Lane& lane) { lane.WatchPolicies(now); });
}

void World::Take(const Datagram& datagram, Timestamp now) {
  std::vector<std::uint8_t> space;
  intake_.Take(IsSFlow(datagram) ? host::kSFlowProtocol : host::kNetflowProtocol,
               PacketOf(datagram, now, &space));
}

void World::Deliver(bool has_domain, std::span<const std::uint8_t> message) {
  channels_.Deliver(
      0, has_domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES, message);
  lanes_.ForEach([](Lane& lane) { lane.TakeMessages(); });
}

void World::Reload(Timestamp now) {
  lanes_.ForEach([&](Lane& lane) {
    for (const std::string& told : lane.LookAtPolicies(now)) {
      const bool is_edited = told.find(host::kNetflowPolicyFile) != std::string::npos;
      const bool is_read = told.find("has reloaded") != std::string::npos;
      Demand(is_read == is_edited, "a newer policy is read, and no other");
    }
  });
}

void World::ReplaceMeters(Timestamp now) {
  lanes_.ForEach([&](Lane& lane) { lane.ReplaceMeters(now); });
}

void World::Harvest() {
  lanes_.ForEach([&](Lane& lane) {
    host::Harvest harvest = lane.Reap();
    NoteFlows(harvest.store->flows(), lane.number());
    counted_.Add(std::move(harvest));
  });
}

void World::HandOutFlows(std::size_t most) {
  lanes_.HandOutFlows(most, [&](const Lane& lane, host::EarlyFlows early) {
    NoteFlows(early.flows.table, lane.number());
    counted_.AddFlows(early.flows);
  });
}

void World::NoteFlows(const host::FlowTable& flows, int lane) {
  flows.ForEach([&](std::string_view key, const host::FlowTotals&) {
    const auto known = lanes_of_flows_.find(key);
    if (known == lanes_of_flows_.end()) {
      lanes_of_flows_.emplace(key, lane);
    } else if (known->second != lane) {
      known->second = 0;
    }
  });
}

bool World::HaveSeveralLanesMet(std::string_view flow) const {
  const auto known = lanes_of_flows_.find(flow);
  return known != lanes_of_flows_.end() && known->second == 0;
}

}  // namespace flow::fuzz
