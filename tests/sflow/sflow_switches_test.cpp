// SPDX-License-Identifier: Apache-2.0
// The switches of the sFlow meter that mend numbers: what each changes, and that without it nothing
// does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sflow/sflow_meter.h"
#include "tests/support/recording_host.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

std::string On(const std::string& key) { return "<" + key + ">true</" + key + ">"; }

Lines Calls(const std::string& settings, const SFlowPacket& packet, const std::string& group) {
  RecordingHost host;
  host.AnyValue().Policy(settings);
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  EXPECT_EQ(host.Count(meter, packet.Build()), kStatusOk);
  return host.Take(group);
}

const SFlowFlow kIpv4 = {.elements = {SampledHeader(Frame().Ethernet().Ipv4().Tcp())}};
const SFlowFlow kIpv6 = {.elements = {SampledHeader(Frame().Ethernet(0x86DD).Ipv6().Tcp())}};
const SFlowFlow kArp = {.elements = {SampledHeader(Frame().Ethernet(0x0806).Hex("0001080006040001"),
                                                   {.packet_size = 64})}};
const SFlowFlow kEmpty = {.elements = {}};

TEST(SFlowSwitches, Count64Bit) {
  SFlowFlow large = kIpv4;
  large.rate = 5'000'000;
  const std::string total = "UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW ";
  EXPECT_THAT(Calls("", SFlowPacket().Flow(large), "TOTALBW"),
              ElementsAre(total + "0 705032704 1 5000000"));
  EXPECT_THAT(Calls(On("Count64Bit"), SFlowPacket().Flow(large), "TOTALBW"),
              ElementsAre(total + "0 5000000000 1 5000000"));
}

TEST(SFlowSwitches, MeterIPv6Samples) {
  const std::string on = On("MeterIPv6Samples");
  EXPECT_THAT(Calls("", SFlowPacket().Flow(kIpv6), "COUNTERID"), IsEmpty());
  EXPECT_THAT(Calls(on, SFlowPacket().Flow(kIpv6), "COUNTERID_HOSTS"),
              ElementsAre("UpdateCounter2 COUNTERID_HOSTS6 32 20010DB8000000000000000000000001 0 "
                          "100000 2 100000",
                          "UpdateCounter2 COUNTERID_HOSTS6 32 20010DB8000000000000000000000002 0 "
                          "100000 1 100000"));
  EXPECT_EQ(Calls(on, SFlowPacket().Flow(kIpv4), ""), Calls("", SFlowPacket().Flow(kIpv4), ""));

  const auto agent6 = [](const SFlowFlow& flow) {
    return SFlowPacket().Agent(SFlowAddress6("2001:db8::9")).Flow(flow);
  };
  const std::string agent = "20010DB8000000000000000000000009";
  EXPECT_THAT(Calls(on, agent6(kIpv4), "COUNTERID_FLOWGEN"),
              ElementsAre(testing::HasSubstr(" 32 " + agent + " ")));
  EXPECT_THAT(Calls(on, agent6(kIpv4), "COUNTERID_FLOWINTF"),
              ElementsAre(testing::HasSubstr(" 41 " + agent + "_00000003 "),
                          testing::HasSubstr(" 41 " + agent + "_00000007 ")));
  const std::string apart = on +
                            "<MergeMultipleSources>false</MergeMultipleSources>"
                            "<MergeHTTP>false</MergeHTTP>";
  for (const SFlowFlow& flow : {kIpv4, kIpv6}) {
    EXPECT_THAT(Calls(apart, agent6(flow), "UpdateFlowVolume"),
                ElementsAre(testing::HasSubstr("_" + agent + "_0000000")));
  }
  EXPECT_THAT(Calls("", agent6(kIpv4), "COUNTERID_FLOWGEN"),
              ElementsAre(testing::HasSubstr(" 11 20.01.0D.B8 ")));
}

// Without the switch an ARP frame counts as the packet before it.
TEST(SFlowSwitches, SkipUndecodedSamples) {
  const SFlowPacket packet = SFlowPacket().Flow(kIpv4).Flow(kArp).Flow(kEmpty);
  EXPECT_EQ(Calls("", packet, "COUNTERID_HOSTS 11 0A.00.00.01").size(), 3U);
  const std::string on = On("SkipUndecodedSamples");
  EXPECT_EQ(Calls(on, packet, "COUNTERID_HOSTS 11 0A.00.00.01").size(), 1U);
  const std::string total = "UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW ";
  EXPECT_THAT(Calls(on, packet, "TOTALBW"),
              ElementsAre(total + "0 100000 1 100", total + "0 6400 1 100", total + "0 0 1 100"));
  EXPECT_EQ(Calls(on, packet, "COUNTERID_FLOWINTF").size(), 6U);
}

TEST(SFlowSwitches, CountLeftOut) {
  const SFlowFlow fragment = {
      .elements = {SampledHeader(Frame().Ethernet().Ipv4({.fragment = 1}))}};
  const std::string line = "UpdateCounterKeyLen COUNTERID_LEFTOUT 11 0A.09.08.07 ";
  const auto told = [&](const std::string& settings, const SFlowPacket& packet) {
    return Calls(settings + On("CountLeftOut"), packet, "COUNTERID_LEFTOUT");
  };
  EXPECT_THAT(told("", SFlowPacket().Flow(kIpv4)), IsEmpty());
  EXPECT_THAT(told("", SFlowPacket().Flow(kIpv6)), ElementsAre(line + "5 1"));
  EXPECT_THAT(told("", SFlowPacket().Flow(kArp)), ElementsAre(line + "6 1"));
  EXPECT_THAT(told("", SFlowPacket().Flow(fragment)), ElementsAre(line + "7 1"));
  EXPECT_THAT(told("", SFlowPacket().Counters({})), ElementsAre(line + "9 1"));
  EXPECT_THAT(told("<FilterHostsInclude>10.9.9.9</FilterHostsInclude>", SFlowPacket().Flow(kIpv4)),
              ElementsAre(line + "3 1"));
  EXPECT_THAT(Calls("", SFlowPacket().Flow(kIpv6), "COUNTERID_LEFTOUT"), IsEmpty());
}

}  // namespace
}  // namespace flow::test
