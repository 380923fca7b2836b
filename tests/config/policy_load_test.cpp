// SPDX-License-Identifier: Apache-2.0
// Whole loads of the policy, by the meter that they are for: what is said in which order, and what
// a load leaves in force.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "netflow/netflow_meter.h"
#include "sflow/sflow_meter.h"
#include "tests/config/parsed_policy.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/policy_file.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

constexpr char kNoFile[] = "Log 4 Glob cannot find any data files for use";

TEST(PolicyLoad, SpeaksInTheOrderOfItsSteps) {
  RecordingHost host;
  host.Policy(Setting("HomeASNumbersFile", "flow_policy_load_test") +  // in the wrong order
                  Setting("ReloadConfigCheckSeconds", "60") +
                  Setting("AddL2AccountingBytes", "14") + Setting("HomeASNumbers", "100") +
                  Setting("IgnoreV9EgressFromDevices", "10.1.2.9") +
                  Setting("FilterHostsExclude", "10.1.2,10.1.2.4") +
                  Setting("FilterInterfacesExclude", "0A.01.02.03_00000007"),
              "<SamplingRates><Rate router=\"192.0.2.9\" rate=\"100\"/></SamplingRates>");
  WriteFile(host.Directory() + "/incoming_1_flow_policy_load_test", "200\n");
  const auto meter = host.Attach<CPINetflowMeter>();
  Lines expected = {
      "Log 7 Loading netflow metering policy configuration",
      "Log 8 Added FilterInterfacesExclude by key 0A.01.02.03_00000007",
      "Log 5 FilterInterfacesExclude option active. Only a subset of traffic monitored",
      "Log 4 FilterHostsExclude : Invalid host supplied 10.1.2",
      "Log 7 Loaded Custom Sample Rate for 192.0.2.9 = 100",
      "Log 7 [v9 EGRESS EXCLUDE] will ignore Egress counters from router 10.1.2.9, router count = "
      "1",
      "Log 7 NETFLOW: HOME AS ADDED 100",
      "Log 7 NETFLOW: HOME AS total number added = 1",
      "Log 7 TerminateFlow disabled due to user configuration fMergeHTTP/HTTPS/DNS",
      "Log 7 L2 Ethernet Adjust Bytes: Adding x bytes per packet 14",
      "Log 7 CONFIGRELOAD: Will check and reload config every 60 seconds",
      "Log 7 FLOW: loading home as numbers from AS file " + host.Directory() +
          "/incoming_1_flow_policy_load_test",
      "Log 7 FLOW: loading Home and Downstream AS numbers count=1",
      "Log 8 Attached site to Netflow Counter Plugin",
  };
  EXPECT_THAT(host.Take(), ElementsAreArray(expected));

  // A reload says the same, between its own words.
  const Bytes datagram = V5Packet().Build();
  SetModificationTime(host.PolicyPath(), 1'000'000);
  host.Now(1000).Count(meter, datagram);
  SetModificationTime(host.PolicyPath(), 2'000'000);
  host.Now(1060).Count(meter, datagram);
  expected.front() = "Log 8 CONFIGREFRESH:  Config file modified, reloading";
  expected.back() = "Log 8 CONFIGREFRESH:  Reloaded configuration file";
  EXPECT_THAT(host.Take("Log "), ElementsAreArray(expected));
}

TEST(PolicyLoad, OfNothingSaysOnlyWhatEveryLoadSays) {
  RecordingHost host;
  host.Attach<CPINetflowMeter>();
  EXPECT_THAT(host.Take(), ElementsAre("Log 7 Loading netflow metering policy configuration",
                                       "Log 7 NETFLOW: HOME AS total number added = 0",
                                       "Log 7 TerminateFlow disabled due to user configuration "
                                       "fMergeHTTP/HTTPS/DNS",
                                       "Log 8 Attached site to Netflow Counter Plugin"));
}

TEST(PolicyLoadDeathTest, OfABrokenFileEndsTheProcess) {
  RecordingHost host;
  WriteFile(host.PolicyPath(), "<OmbrelPluginConfiguration>");
  EXPECT_EXIT(host.Attach(ComponentOf<CPINetflowMeter>()), testing::ExitedWithCode(255), "");
  EXPECT_EXIT(host.Attach(ComponentOf<CPISFlowMeter>()), testing::ExitedWithCode(255), "");
}

// A meter whose policy file is edited while it runs.
class Reload : public testing::Test {
 protected:
  void Attach(const std::string& settings) {
    host_.Now(now_).Policy(settings);
    SetModificationTime(host_.PolicyPath(), ++edits_);
    ASSERT_EQ(host_.Attach(meter_), kStatusOk);
    Count();  // the baseline
  }
  // Edit changes the policy; the datagram that finds it gives its lines.
  Lines Edit(const std::string& settings) {
    host_.Policy(settings);
    SetModificationTime(host_.PolicyPath(), ++edits_);
    now_ += 60;
    Lines lines = Count();
    now_ += 1;
    return lines;
  }
  // Count gives the lines of a datagram, or those that contain a text.
  Lines Count(std::string_view text = {}) {
    host_.Now(now_).Count(meter_, V5Packet().Record({.src_as = 100, .dst_as = 200}).Build());
    return host_.Take(text);
  }

  RecordingHost host_;
  ComponentOf<CPINetflowMeter> meter_;
  std::uint64_t now_ = 1000;
  std::int64_t edits_ = 1'000'000;
};

TEST_F(Reload, ThatConflictsStopsThereAndLeavesTheRest) {
  const std::string rest = Setting("AddL2AccountingBytes", "14") + Setting("HomeASNumbers", "100") +
                           Setting("ReloadConfigCheckSeconds", "60");
  Attach(rest + Setting("FilterHostsInclude", "10.0.0.1") +
         Setting("FilterInterfacesInclude", "192.0.2.1_3"));
  const Lines lines =
      Edit(Setting("MeterHosts", "false") + Setting("FilterInterfacesInclude", "192.0.2.1_4") +
           Setting("FilterInterfacesExclude", "192.0.2.1_3") +
           Setting("FilterHostsInclude", "10.0.0.9") + Setting("AddL2AccountingBytes", "0"));
  EXPECT_THAT(Lines(lines.begin(), lines.begin() + 4),
              ElementsAre("Log 8 CONFIGREFRESH:  Config file modified, reloading",
                          "Log 4 Cant have both include and exclude interface filter in netflow "
                          "config",
                          "Log 4 CONFIGREFRESH: Unable to load netflow policy information from "
                          "configuration",
                          "Log 8 CONFIGREFRESH:  Reloaded configuration file"));
  // Of the new file: no host counters. Of the old one: the added bytes, the home AS number and the
  // hosts' filter. The interfaces' filter is off.
  EXPECT_THAT(Count("COUNTERID_HOSTS"), IsEmpty());
  EXPECT_THAT(Count("COUNTERID_ASN"),
              ElementsAre("UpdateCounter2 COUNTERID_ASN 3 100 0 1140 3 1140",
                          "UpdateCounter2 COUNTERID_ASN 3 200 0 1140 2 1140"));
  // The checker goes on, so a mended file is found.
  Edit(rest + Setting("FilterHostsInclude", "10.0.0.9"));
  EXPECT_THAT(Count("TOTALBW"), IsEmpty()) << "the new list of hosts";
}

TEST_F(Reload, GoesOnWithItsIntervalWhenANewOneIsTooShort) {
  const auto found = testing::Contains("Log 8 CONFIGREFRESH:  Config file modified, reloading");
  Attach(Setting("ReloadConfigCheckSeconds", "59"));
  now_ += 1000;
  EXPECT_THAT(Edit(""), testing::Not(found)) << "off until an interval is long enough";
  Attach(Setting("ReloadConfigCheckSeconds", "60"));
  EXPECT_THAT(Edit(Setting("ReloadConfigCheckSeconds", "59")),
              testing::Contains("Log 5 CONFIGRELOAD: IGNORE. Minimum value must be 60 seconds, "
                                "supplied input =  59"));
  EXPECT_THAT(Edit(Setting("ReloadConfigCheckSeconds", "0")), found);
  EXPECT_THAT(Edit(""), found);
}

// Reload, then feed, then the datagram, which is metered under the new policy.
TEST_F(Reload, ComesBeforeTheFeedAndBothBeforeTheDatagram) {
  const std::string reload = Setting("ReloadConfigCheckSeconds", "60");
  const std::string feed = Setting("HomeASNumbersFile", "flow_policy_load_test");
  Attach(reload + feed);
  now_ += 1800;
  const Lines lines = Edit(reload + feed + Setting("MeterHosts", "false"));
  EXPECT_THAT(
      Lines(lines.begin(), lines.begin() + 9),
      ElementsAre("Log 8 CONFIGREFRESH:  Config file modified, reloading",
                  "Log 7 NETFLOW: HOME AS total number added = 0",
                  "Log 7 TerminateFlow disabled due to user configuration "
                  "fMergeHTTP/HTTPS/DNS",
                  "Log 7 CONFIGRELOAD: Will check and reload config every 60 seconds", kNoFile,
                  "Log 8 CONFIGREFRESH:  Reloaded configuration file",
                  "Log 7 HOMEASREFRESH: Checking for new HomeASNumbersFile current=", kNoFile,
                  "Log 7 HOMEASREFRESH: No new HomeASNumbersFile available, staying with "));
  for (const std::string& line : lines) EXPECT_EQ(line.find("COUNTERID_HOSTS"), line.npos);
}

}  // namespace
}  // namespace flow::test
