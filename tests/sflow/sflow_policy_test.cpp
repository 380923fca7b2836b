// SPDX-License-Identifier: Apache-2.0
// The sFlow meter and its site: attaching, the policy file and what each switch turns off.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "sflow/sflow_handler.h"
#include "sflow/sflow_meter.h"
#include "tests/support/recording_host.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

using testing::ElementsAre;

const std::string kLoading = "Log 7 Loading sflow metering policy configuration";
const std::string kAttached = "Log 8 Attached site to SFLOW Counter Plugin";
const std::string kNotLoaded = "Log 4 Unable to load sflow  policy information from configuration";
const std::string kNoFile = "Log 4 Error preparing plugin configuration file. Cant proceed";

TEST(SFlowPolicy, AttachSaysHowItWent) {
  RecordingHost host;
  const ComponentOf<CPISFlowMeter> meter;
  EXPECT_EQ(host.Attach(meter), kStatusOk);
  EXPECT_THAT(host.Take(), ElementsAre(kLoading, kAttached));
  EXPECT_EQ(host.SiteReferences(), 1);

  host.PolicyPath(CLSID_PI_SFLOWMETER, std::nullopt);
  EXPECT_EQ(host.Attach(meter), kStatusFailed);
  EXPECT_THAT(host.Take(), ElementsAre(kLoading, kNoFile));

  host.Fail("PreparePluginConfigFile");
  EXPECT_EQ(host.Attach(meter), kStatusFailed);
  EXPECT_THAT(host.Take(), ElementsAre(kLoading, kNoFile));
}

TEST(SFlowPolicy, ConflictingListsFailTheAttach) {
  const std::pair<const char*, const char*> rows[] = {
      {"<FilterInterfacesInclude>a</FilterInterfacesInclude>"
       "<FilterInterfacesExclude>b</FilterInterfacesExclude>",
       "Log 4 Cant have both include and exclude interface filter in netflow config"},
      {"<FilterHostsInclude>10.0.0.1</FilterHostsInclude>"
       "<FilterHostsExclude>x</FilterHostsExclude>",
       "Log 4 Cant have both include and exclude hosts  filter in netflow config"},
  };
  for (const auto& [settings, message] : rows) {
    RecordingHost host;
    host.Policy(settings);
    const ComponentOf<CPISFlowMeter> meter;
    EXPECT_EQ(host.Attach(meter), kStatusFailed);
    EXPECT_THAT(host.Take(), ElementsAre(kLoading, message, kNotLoaded));
  }
}

TEST(SFlowPolicy, FilterItemsThatAreNone) {
  RecordingHost host;
  host.Policy(
      "<FilterInterfacesExclude>rubbish,10.1.1.1_3</FilterInterfacesExclude>"
      "<FilterHostsInclude>10.0.0.1, 10.0.0.2,10.0.0</FilterHostsInclude>");
  const auto meter = host.Attach<CPISFlowMeter>();
  EXPECT_THAT(host.Take(),
              ElementsAre(kLoading, "Log 4 FilterHostsInclude : Invalid host supplied  10.0.0.2",
                          "Log 4 FilterHostsInclude : Invalid host supplied 10.0.0", kAttached));
}

// The first words of the calls of one datagram: operation and group.
std::set<std::string> Updated(const std::string& settings) {
  RecordingHost host;
  host.Policy(settings);
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  host.Count(
      meter,
      SFlowPacket()
          .Flow({.elements = {SampledHeader(Frame().Ethernet().Ipv4().Tcp(51000, 25, 0x12))}})
          .Build());
  std::set<std::string> groups;
  for (const std::string& line : host.Take()) {
    std::string rest = line.substr(line.find(' ') + 1);
    const std::size_t end = rest.find(' ');
    if (rest.starts_with("COUNTERID_AGGREGATES")) {
      groups.insert(rest.find("TOTALBW") == std::string::npos ? "DIR" : "TOTALBW");
    } else {
      groups.insert(rest.starts_with("COUNTERID_") ? rest.substr(10, end - 10)
                                                   : line.substr(0, 10));
    }
  }
  return groups;
}

TEST(SFlowPolicy, SwitchesTurnGroupsOff) {
  const std::set<std::string> all = {
      "MarkRecord", "FLOWGEN", "TOTALBW",    "IPPROTOCOL", "HOSTS", "DIR",    "APPS",
      "FLOWINTF",   "FLOWS",   "UpdateFlow", "VLAN",       "MAC",   "MACPAIR"};
  EXPECT_EQ(Updated(""), all);
  const std::pair<const char*, std::set<std::string>> rows[] = {
      {"MeterHosts", {"HOSTS", "DIR"}},
      {"MeterApplications", {"APPS"}},
      {"MeterNetflowInterfaces", {"FLOWINTF"}},
      {"MeterNetflowSources", {"FLOWGEN"}},
      {"MeterVLAN", {"VLAN"}},
      {"MeterMAC", {"MAC", "MACPAIR"}},
      {"MeterSubnets", {}},
      {"UseRouterTimestamps", {}},
      {"IgnoreESP", {}},
      {"MeterHomeNetwork", {}},
  };
  for (const auto& [key, without] : rows) {
    std::set<std::string> expected = all;
    for (const std::string& group : without) expected.erase(group);
    const std::string name = key;
    EXPECT_EQ(Updated("<" + name + ">false</" + name + ">"), expected) << name;
  }
}

TEST(SFlowMeter, HasNoChannelAndCountsFlows) {
  const ComponentOf<CPISFlowMeter> meter;
  EXPECT_EQ(meter.Find<IOmbrelChannelListener>(), nullptr);
  IID protocol{};
  EXPECT_EQ(meter->GetAttachmentProtID(&protocol), kStatusOk);
  EXPECT_TRUE(protocol == kProtocolSFlow);
  bool is_flow = false;
  EXPECT_EQ(meter->IsFlowCounter(&is_flow), kStatusOk);
  EXPECT_TRUE(is_flow);
}

}  // namespace
}  // namespace flow::test
