// SPDX-License-Identifier: Apache-2.0
// A host's day: load, attach, meter a datagram, detach, finalise, unload, and all of it again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <iterator>

#include "tests/integration/foreign_host.h"
#include "tests/integration/loaded_library.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/policy_file.h"

namespace foreign {
namespace {

using flow::test::PolicyFile;
using flow::test::V5Packet;
using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

std::vector<std::uint8_t> OneFlow() {
  return V5Packet()
      .Times(10000, 1700000000)
      .Record({.src = "10.0.0.1",
               .dst = "203.0.113.9",
               .input = 3,
               .output = 7,
               .packets = 10,
               .bytes = 1000,
               .first = 5000,
               .last = 9250,
               .src_port = 51000,
               .dst_port = 443,
               .protocol = 6,
               .src_as = 100,
               .dst_as = 200,
               .src_mask = 24})
      .Build();
}

struct Meter {
  Meter(Library& library, Host& host)
      : plugin(library.NewAs(kNetflowMeter, kPlugin)), counter(Query(plugin, kSimpleCounter)) {
    EXPECT_EQ(Call(plugin, at::AttachSite, host.Site()), 0u);
  }
  ~Meter() {
    EXPECT_EQ(Call(plugin, at::DetachSite), 0u);
    Release(counter);
    EXPECT_EQ(Release(plugin), 0u);
  }

  Object* plugin;
  Object* counter;
};

TEST(Lifecycle, AFlowArrivesInTheHostsCounters) {
  const PolicyFile policy("<MergeHTTPS>false</MergeHTTPS>");
  Host host(policy.Path());
  Library library;
  const Meter meter(library, host);
  EXPECT_EQ(host.site_references, 1);
  EXPECT_THAT(host.lines, ElementsAre("Log 7 Loading netflow metering policy configuration",
                                      "PreparePluginConfigFile NetflowCounterPolicy.xml",
                                      "Log 7 NETFLOW: HOME AS total number added = 0",
                                      "Log 7 TerminateFlow disabled due to user configuration "
                                      "fMergeHTTP/HTTPS/DNS",
                                      "Log 8 Attached site to Netflow Counter Plugin"));

  host.lines.clear();
  EXPECT_EQ(host.Count(meter.counter, OneFlow()), 0u);
  const std::string flow =
      "06C:0A.00.00.01:p-C738_CB.00.71.09:p-01BB_00.00.00.00_00000000_00000000";
  EXPECT_THAT(host.lines,
              ElementsAre("MarkRecord",  //
                          "UpdateCounter2 2314BB8E 11 C0.00.02.01 2 1 0 1000",
                          "UpdateCounter2 120A3124 3 200 0 1000 2 1000",
                          "UpdateCounterHashed2 393B5EBC 0xCE94BC07 TOTALBW 0 1000 1 10",
                          "UpdateCounterKeyLen E89BCD56 2 06 0 1000",
                          "UpdateCounterKeyLen 9F5AD3A9 4 0800 0 1000",
                          "UpdateCounterMulti 4CD742B1 11 0A.00.00.01 4 * *",
                          "UpdateCounterMulti 4CD742B1 11 CB.00.71.09 4 * *",
                          "UpdateCounterHashed2 393B5EBC 0x33708C0D DIR_OUTOFHOME 0 1000 1 10",
                          "UpdateCounterKeyLen C51B48D4 6 p-01BB 0 1000",
                          "UpdateCounter3 429B65AD 14 0A.00.00.00/18 0 1000 2 1000 3 10",
                          "UpdateCounter3 429B65AD 8 external 0 1000 1 1000 3 10",
                          "UpdateCounter3 C0B04CA7 20 C0.00.02.01_00000003 0 1000 1 1000 3 1",
                          "UpdateCounter3 C0B04CA7 20 C0.00.02.01_00000007 0 1000 2 1000 3 1",
                          "UpdateFlowCounter 99A78737 " + flow + " 0 1000",
                          "UpdateFlowCounter 99A78737 " + flow + " 2 10",
                          "UpdateFlowVolume " + flow + " 1000 0 10 0",
                          "SetFlowTimes 99A78737 " + flow + " 1699999995.0 1699999999.250",
                          "UpdateCounterKeyLen 2314BB8E 11 C0.00.02.01 1 72"));
}

// The host's remaining operations, each through its own place in the engine's table.
TEST(Lifecycle, OtherSwitchesReachTheOtherOperations) {
  const PolicyFile policy(
      "<UseRouterTimestamps>false</UseRouterTimestamps><MergeHTTP>false</MergeHTTP>"
      "<MergeHTTPS>false</MergeHTTPS><MergeDNS>false</MergeDNS>"
      "<TagFlowsWithDirection>true</TagFlowsWithDirection>"
      "<MeterZeroFlows>true</MeterZeroFlows><TagFlowsWithUserID>true</TagFlowsWithUserID>"
      "<MeterLinkAS>true</MeterLinkAS>");
  Host host(policy.Path());
  Library library;
  const Meter meter(library, host);
  host.lines.clear();
  EXPECT_EQ(host.Count(meter.counter, V5Packet().Record({.tcp_flags = 2}).Build()), 0u);
  for (const char* const operation :
       {"UpdateCounter 1D86CAB7 0\\C0.00.02.01_00000003 0 1000", "UpdateFlowCounterWithText 99A7",
        "TagFlow 99A78737 06C", "SetFlowDuration 99A78737 06C", "CloseFlow 99A78737 06C"}) {
    EXPECT_THAT(host.lines, Contains(StartsWith(operation)));
  }
  EXPECT_THAT(host.lines, Contains(testing::EndsWith(" [dir]internal")));
  EXPECT_THAT(host.lines, Contains(testing::EndsWith(" 4000"))) << "duration in milliseconds";
}

// A template travels through the host's channel: posted by one meter, learnt by another.
TEST(Lifecycle, TemplatesAreSharedOverTheChannel) {
  using flow::test::V9Packet;
  using flow::test::V9Templates;
  using flow::test::Wire;
  const flow::test::Set templates = V9Templates().Template(256, {{8, 4}, {12, 4}, {1, 4}});
  const PolicyFile policy;
  Host host(policy.Path());
  Library library;
  const Meter one(library, host);
  const Meter other(library, host);
  host.lines.clear();
  host.Count(one.counter, V9Packet().Add(templates).Build());
  EXPECT_THAT(host.lines, Contains("PostChannelMessage 82374096 7CA09636 44 *"));

  Wire message;  // IPv4 header and ports, then the set
  message.U8(0x45).Zeros(11).Ip("192.0.2.1").Zeros(4).U16(50000).U16(2055);
  message.Raw(templates.Build());
  std::vector<std::uint8_t> bytes = message.Get();
  const Guid channel = ParseGuid("82374096-ABAD-38AB-B1C8-8B7683F440BD");
  Object* const listener = Query(other.plugin, kChannelListener);
  EXPECT_EQ(Call(listener, at::OnChannelMessage, &channel, static_cast<unsigned int>(bytes.size()),
                 bytes.data()),
            0u);
  Release(listener);

  host.lines.clear();
  host.Count(
      other.counter,
      V9Packet()
          .Add(flow::test::DataSet(256).Record(Wire().Ip("10.0.0.1").Ip("10.0.0.2").U32(500)))
          .Build());
  EXPECT_THAT(host.lines, Contains("MarkRecord"));
}

TEST(Lifecycle, HandlersClaimDatagramsOf24Bytes) {
  const PolicyFile policy;
  Host host(policy.Path());
  Library library;
  for (const Class component : {kNetflow, kSFlow}) {
    SCOPED_TRACE(kClasses[component].name);
    Object* const handler = library.NewAs(component, kProtHandler);
    std::uint32_t disposition[2] = {77, 77};  // the second one is not the library's
    host.lines.clear();
    EXPECT_EQ(host.GenerateParse(handler, std::vector<std::uint8_t>(23), disposition), 0x80000007);
    EXPECT_EQ(disposition[0], 77u);
    EXPECT_EQ(host.GenerateParse(handler, std::vector<std::uint8_t>(24), disposition), 0u);
    EXPECT_THAT(disposition, ElementsAre(3, 77));
    EXPECT_THAT(host.lines, ElementsAre("SetParsedLength 24"));
    Release(handler);
  }
}

void OneDay(const std::string& policy_path) {
  Host host(policy_path);
  Library library;
  {
    const Meter meter(library, host);
    EXPECT_EQ(host.Count(meter.counter, OneFlow()), 0u);
    EXPECT_THAT(host.lines, Contains("MarkRecord"));
  }
  for (const Class component : {kNetflow, kNetflowGen, kNetflowIntf, kSFlowMeter, kSFlow}) {
    Object* const plugin = library.NewAs(component, kPlugin);
    Call(plugin, at::AttachSite, host.Site());
    Call(plugin, at::DetachSite);
    EXPECT_EQ(Release(plugin), 0u);
  }
  EXPECT_TRUE(Library::Loaded());
  library.Close();
  EXPECT_FALSE(Library::Loaded()) << "something keeps the library in the process";
}

std::ptrdiff_t Entries(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST(Lifecycle, UnloadingLeavesNothingBehind) {
  const PolicyFile policy;
  ASSERT_FALSE(Library::Loaded()) << "the test must not be linked with the library";
  OneDay(policy.Path());
  const std::ptrdiff_t open_files = Entries("/proc/self/fd");

  // The C library keeps some blocks for itself at first; a leak grows with each load.
  std::size_t growth = 1;
  for (int week = 0; week < 5 && growth != 0; ++week) {
    const std::size_t before = mallinfo2().uordblks;
    for (int day = 0; day < 7; ++day) OneDay(policy.Path());
    growth = mallinfo2().uordblks - before;
  }
  EXPECT_EQ(growth, 0u) << "bytes that a week of loads leaves in use";
  EXPECT_EQ(Entries("/proc/self/fd"), open_files);
  EXPECT_EQ(Entries("/proc/self/task"), 1) << "a thread was left running";
}

}  // namespace
}  // namespace foreign
