// SPDX-License-Identifier: Apache-2.0
// What samples become: the calls into the statistics engine.

#include "sflow/sflow_meter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "tests/support/recording_host.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

std::string Off(const std::string& key) { return "<" + key + ">false</" + key + ">"; }
std::string On(const std::string& key) { return "<" + key + ">true</" + key + ">"; }

// What a sampled packet is made of in these tests; a sample of 1 in 100.
struct Packet {
  std::uint32_t protocol = 6;
  Ip4 source = "10.0.0.1";
  Ip4 destination = "10.0.0.2";
  std::uint32_t source_port = 51000;
  std::uint32_t destination_port = 25;
  std::uint32_t flags = 0x10;
};

// An IPv4 data element: it holds protocol and ports of any size.
SFlowElement Data(const Packet& packet) {
  return {3, Join({Words({60, packet.protocol}), Wire().Ip(packet.source).Ip(packet.destination),
                   Words({packet.source_port, packet.destination_port, packet.flags, 0})})};
}

Bytes Datagram(const Packet& packet) {
  return SFlowPacket().Flow({.elements = {Data(packet)}}).Build();
}

// Calls of one datagram that name the group, under a policy, with 10.0.0.0/24 at home.
Lines Calls(const std::string& settings, const Bytes& datagram, const std::string& group) {
  RecordingHost host;
  host.Policy(settings).Home("10.0.0.0/24");
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  EXPECT_EQ(host.Count(meter, datagram), kStatusOk);
  return host.Take(group);
}

TEST(SFlowMetering, OneSampleInOrder) {
  RecordingHost host;
  host.Home("10.0.0.0/24");
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  const Bytes datagram =
      SFlowPacket()
          .Flow({.elements = {SampledHeader(Frame().Ethernet().Ipv4().Tcp(51000, 25, 0x02)),
                              {1001, Words({100, 0, 200, 0})}}})
          .Build();
  ASSERT_EQ(datagram.size(), 172U);
  host.Count(meter, datagram);
  const std::string session = "06C:0A.00.00.01:p-C738_0A.00.00.02:p-0019_00.00.00.00_0000_0000";
  EXPECT_THAT(
      host.Take(),
      ElementsAre(
          "MarkRecord",  //
          "UpdateCounter3 COUNTERID_FLOWGEN 11 0A.09.08.07 1 172 2 1 0 100000",
          "UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW 0 100000 1 100",
          "UpdateCounterKeyLen COUNTERID_IPPROTOCOL 2 06 0 100000",
          "UpdateCounterMulti COUNTERID_HOSTS 11 0A.00.00.01 4 0 100000 2 100000 6 100000 3 100",
          "UpdateCounterMulti COUNTERID_HOSTS 11 0A.00.00.02 4 0 100000 1 100000 6 100000 3 100",
          "UpdateCounterHashed2 COUNTERID_AGGREGATES 0x8cb1e50e DIR_WITHINHOME 0 100000 1 100",
          "UpdateCounterKeyLen COUNTERID_APPS 6 p-0019 0 100000",
          "UpdateCounter3 COUNTERID_FLOWINTF 20 0A.09.08.07_00000003 0 100000 1 100000 3 1",
          "UpdateCounter3 COUNTERID_FLOWINTF 20 0A.09.08.07_00000007 0 100000 2 100000 3 1",
          "UpdateCounter COUNTERID_FLOWS " + session + " 0 100000",
          "UpdateCounter COUNTERID_FLOWS " + session + " 2 100",
          "UpdateFlowVolume " + session + " 100000 0 100 0",
          "CloseFlow COUNTERID_FLOWS " + session,  //
          "UpdateCounter COUNTERID_VLAN 0064 0 100000",
          "UpdateCounter COUNTERID_VLAN 0064 1 100000",
          "UpdateCounter COUNTERID_VLAN 00C8 0 100000",
          "UpdateCounter COUNTERID_VLAN 00C8 2 100000",
          "UpdateCounter COUNTERID_MAC 02:00:00:00:00:01 0 100000",
          "UpdateCounter COUNTERID_MAC 02:00:00:00:00:02 1 100000",
          "UpdateCounterKeyLen COUNTERID_MACPAIR 37 02:00:00:00:00:01 ->02:00:00:00:00:02 0 "
          "100000"));
}

// Which samples are metered; each is marked. The flow before must not be counted again.
TEST(SFlowMetering, WhichSamples) {
  const SFlowFlow flow = {.elements = {Data({})}};
  const SFlowFlow expanded = {.elements = {Data({})}, .expanded = true};
  const SFlowFlow fragment = {
      .elements = {SampledHeader(Frame().Ethernet().Ipv4({.fragment = 1}))}};
  const SFlowFlow old = {.elements = {PacketData4(2)}};
  struct Row {
    const char* what;
    SFlowPacket packet;
    std::size_t marked;
    std::size_t metered;
  };
  const Row rows[] = {
      {"flow samples", SFlowPacket().Flow(flow).Flow(expanded), 2, 2},
      {"counters behind a flow", SFlowPacket().Flow(flow).Counters({}).Flow(flow), 3, 2},
      {"expanded counters behind a flow",
       SFlowPacket().Flow(flow).Counters({.elements = {}, .expanded = true}), 2, 1},
      {"a skipped sample behind a flow", SFlowPacket().Flow(flow).Sample(0x1001, Words({0})), 2, 1},
      {"counters alone", SFlowPacket().Counters({}), 1, 0},
      {"a flow without packet", SFlowPacket().Flow({}), 1, 0},
      {"IPv6", SFlowPacket().Flow({.elements = {PacketData6(4)}}), 1, 0},
      {"a later fragment, and the packet data behind it", SFlowPacket().Flow(fragment).Flow(flow),
       2, 0},
      {"version 4", SFlowPacket(4).Flow(old).Counters({.elements = {{1, GenericCounters()}}}), 2,
       1},
      {"version 2, then nothing that is known", SFlowPacket(2).Flow(old).Sample(3, Words({0})), 1,
       1},
      {"version 3", SFlowPacket(3).Flow(flow), 0, 0},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Calls("", row.packet.Build(), "MarkRecord").size(), row.marked) << row.what;
    EXPECT_EQ(Calls("", row.packet.Build(), "TOTALBW").size(), row.metered) << row.what;
  }
}

TEST(SFlowMetering, LengthOfADatagramCountsOnce) {
  RecordingHost host;
  const auto meter = host.Attach<CPISFlowMeter>();
  const Bytes datagram = SFlowPacket()
                             .Counters({})
                             .Flow({.elements = {Data({})}, .rate = 1})
                             .Flow({.elements = {Data({})}, .rate = 2})
                             .Build();
  const std::string update = "UpdateCounter3 COUNTERID_FLOWGEN 11 0A.09.08.07 1 ";
  for (int round = 0; round < 2; ++round) {
    host.Forget();
    host.Count(meter, datagram);
    EXPECT_THAT(host.Take("FLOWGEN"),
                ElementsAre(update + std::to_string(datagram.size()) + " 2 1 0 60",
                            update + "0 2 1 0 120"));
  }
}

TEST(SFlowMetering, BytesWrapAt32Bits) {
  const Bytes datagram =
      SFlowPacket()
          .Flow({.elements = {SampledHeader(Frame().Ethernet().Ipv4(), {.packet_size = 1500})},
                 .rate = 4000000})
          .Build();
  EXPECT_THAT(Calls("", datagram, "TOTALBW"),
              ElementsAre("UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW 0 "
                          "1705032704 1 4000000"));
}

TEST(SFlowMetering, AnIpv6AgentIsNamedByItsFirstFourBytes) {
  const Bytes datagram =
      SFlowPacket().Agent(SFlowAddress6("2001:db8::1")).Flow({.elements = {Data({})}}).Build();
  EXPECT_THAT(Calls("", datagram, "FLOWINTF").front(),
              testing::HasSubstr(" 20.01.0D.B8_00000003 "));
}

struct Row {
  const char* name;
  std::string settings;
  Packet packet;
  Lines lines;

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

std::string NameOf(const testing::TestParamInfo<Row>& info) { return info.param.name; }

class ApplicationTest : public testing::TestWithParam<Row> {};

TEST_P(ApplicationTest, Updates) {
  const Row& row = GetParam();
  EXPECT_EQ(Calls(row.settings, Datagram(row.packet), "COUNTERID_APPS"), row.lines);
}

std::string App(const std::string& key) {
  return "UpdateCounterKeyLen COUNTERID_APPS " + std::to_string(key.size()) + " " + key + " 0 6000";
}
std::string App2(const std::string& key, int meter) {
  return "UpdateCounter2 COUNTERID_APPS 6 " + key + " 0 6000 " + std::to_string(meter) + " 6000";
}
std::string Connection(const std::string& key) {
  return "UpdateCounterKeyLen COUNTERID_APPS 6 " + key + " 4 1";
}

const std::string kSmaller = Off("MeterBothPorts");
const std::string kConnections = On("MeterAppConnections");

INSTANTIATE_TEST_SUITE_P(
    Ports, ApplicationTest,
    testing::ValuesIn<Row>({
        {"Gre", "", {.protocol = 47}, {App("gre")}},
        {"Esp", "", {.protocol = 50}, {App("ipsec-esp")}},
        {"Icmp", "", {.protocol = 1}, {App("icmp")}},
        {"Sctp", "", {.protocol = 132}, {}},
        {"ProtocolBeyond8Bits", "", {.protocol = 0x106}, {}},
        {"SourceWellKnown", "", {.source_port = 1023, .destination_port = 80}, {App("p-03FF")}},
        {"SourceJustNot", "", {.source_port = 1024, .destination_port = 80}, {App("p-0050")}},
        {"DestinationWellKnown",
         "",
         {.source_port = 1025, .destination_port = 443},
         {App("p-01BB")}},
        {"NoneWellKnown",
         "",
         {.source_port = 5000, .destination_port = 1024},
         {App("p-1388"), App("p-0400")}},
        {"Udp",
         "",
         {.protocol = 17, .source_port = 6000, .destination_port = 5000},
         {App("p-1770"), App("p-1388")}},
        {"PortBeyond16Bits",
         "",
         {.source_port = 0x10050, .destination_port = 5000},
         {App("p-0050"), App("p-1388")}},
        {"SmallerWithinHome",
         kSmaller,
         {.source_port = 5000, .destination_port = 6000},
         {App2("p-1388", 5)}},
        {"SmallerIntoHome", kSmaller, {.source = "192.0.2.1"}, {App2("p-0019", 2)}},
        {"SmallerOutOfHome", kSmaller, {.destination = "192.0.2.1"}, {App2("p-0019", 3)}},
        {"SmallerTransit",
         kSmaller,
         {.source = "192.0.2.1", .destination = "192.0.2.2"},
         {App2("p-0019", 6)}},
        {"SmallerBeyond16Bits",
         kSmaller,
         {.source_port = 0x10050, .destination_port = 5000},
         {App2("p-1388", 5)}},
    }),
    NameOf);

INSTANTIATE_TEST_SUITE_P(
    Connections, ApplicationTest,
    testing::ValuesIn<Row>({
        {"SynAck", kConnections, {.flags = 0x12}, {App("p-0019"), Connection("p-0019")}},
        {"SynAloneIsNone", kConnections, {.flags = 0x02}, {App("p-0019")}},
        {"WithBothPortsOff",
         kConnections + kSmaller,
         {.source_port = 6000, .destination_port = 5000, .flags = 0x52},
         {App2("p-1388", 5), Connection("p-1770"), Connection("p-1388")}},
        {"WithoutApplications",
         kConnections + Off("MeterApplications"),
         {.flags = 0x12},
         {Connection("p-0019")}},
        {"OffByDefault", "", {.flags = 0x12}, {App("p-0019")}},
    }),
    NameOf);

TEST(SFlowMetering, TcpConnectionsOfHosts) {
  const std::string settings = On("MeterTCPConnections") + Off("MeterHosts");
  EXPECT_THAT(Calls(settings, Datagram({.flags = 0x12}), "COUNTERID_HOSTS"),
              ElementsAre("UpdateCounterKeyLen COUNTERID_HOSTS 11 0A.00.00.01 10 1",
                          "UpdateCounterKeyLen COUNTERID_HOSTS 11 0A.00.00.02 10 1"));
  EXPECT_THAT(Calls(settings, Datagram({.flags = 0x10}), "COUNTERID_HOSTS"), IsEmpty());
  EXPECT_THAT(Calls(settings, Datagram({.protocol = 17, .flags = 0x12}), "COUNTERID_HOSTS"),
              IsEmpty());
}

TEST(SFlowMetering, FlowsAreClosedBySynOrRst) {
  for (const std::uint32_t flags : {0x02U, 0x04U, 0x12U, 0x06U}) {
    EXPECT_EQ(Calls("", Datagram({.flags = flags}), "CloseFlow").size(), 1U) << flags;
  }
  EXPECT_THAT(Calls("", Datagram({.flags = 0x11}), "CloseFlow"), IsEmpty());
}

TEST(SFlowMetering, HostsAtHomeAndAway) {
  EXPECT_THAT(
      Calls("", Datagram({.destination = "192.0.2.9"}), "COUNTERID_HOSTS"),
      ElementsAre(
          "UpdateCounterMulti COUNTERID_HOSTS 11 0A.00.00.01 4 0 6000 2 6000 6 6000 3 100",
          "UpdateCounterMulti COUNTERID_HOSTS 11 C0.00.02.09 4 0 6000 1 6000 7 6000 3 100"));
  const std::pair<Packet, const char*> ways[] = {
      {{.destination = "192.0.2.9"}, "0x33708c0d DIR_OUTOFHOME"},
      {{.source = "192.0.2.9"}, "0xf69e2d0c DIR_INTOHOME"},
      {{.source = "192.0.2.9", .destination = "192.0.2.8"}, "0xc7eb260b DIR_TRANSIT"},
  };
  for (const auto& [packet, way] : ways) {
    EXPECT_THAT(Calls("", Datagram(packet), "DIR_"),
                ElementsAre("UpdateCounterHashed2 COUNTERID_AGGREGATES " + std::string(way) +
                            " 0 6000 1 100"));
  }
}

// The flow key of a packet, and the meters that it went to, "01" or "23" with the other direction.
// The volume counts one way, whatever the direction.
class SessionTest : public testing::TestWithParam<Row> {};

TEST_P(SessionTest, Updates) {
  const Row& row = GetParam();
  Lines found;
  for (const std::string& line :
       Calls(row.settings, Datagram(row.packet), "UpdateCounter COUNTERID_FLOWS")) {
    found.push_back(line.substr(30));
  }
  EXPECT_EQ(found, row.lines);
  EXPECT_THAT(Calls(row.settings, Datagram(row.packet), "UpdateFlowVolume"),
              ElementsAre(testing::EndsWith(" 6000 0 100 0")));
}

const std::string kSeparate = Off("MergeMultipleSources");
const std::string kOneWay = Off("MatchBiDirectionalFlows");
const std::string kMerged = "00.00.00.00_0000_0000";

Lines Forward(const std::string& key) { return {key + " 0 6000", key + " 2 100"}; }
Lines Reverse(const std::string& key) { return {key + " 1 6000", key + " 3 100"}; }

INSTANTIATE_TEST_SUITE_P(
    Keys, SessionTest,
    testing::ValuesIn<Row>({
        {"Merged", "", {}, Forward("06C:0A.00.00.01:p-C738_0A.00.00.02:p-0019_" + kMerged)},
        {"OtherDirection",
         "",
         {.source = "10.0.0.2",
          .destination = "10.0.0.1",
          .source_port = 25,
          .destination_port = 51000},
         Reverse("06C:0A.00.00.01:p-C738_0A.00.00.02:p-0019_" + kMerged)},
        {"AddressesAreComparedAsNumbers",
         "",
         {.source = "200.0.0.1"},
         Reverse("06C:0A.00.00.02:p-0019_C8.00.00.01:p-C738_" + kMerged)},
        {"SameAddress",
         "",
         {.destination = "10.0.0.1"},
         Reverse("06C:0A.00.00.01:p-0019_0A.00.00.01:p-C738_" + kMerged)},
        {"Separate",
         kSeparate,
         {},
         Forward("06C:0A.00.00.01:p-C738_0A.00.00.02:p-0019_0A.09.08.07_00000003_00000007")},
        {"SeparateOtherDirection",
         kSeparate,
         {.source = "10.0.0.3"},
         Reverse("06C:0A.00.00.02:p-0019_0A.00.00.03:p-C738_0A.09.08.07_00000007_00000003")},
        {"OneWay",
         kOneWay,
         {.source = "10.0.0.3"},
         Forward("06C:0A.00.00.03:p-C738_0A.00.00.02:p-0019_" + kMerged)},
        {"OneWaySeparate",
         kOneWay + kSeparate,
         {.source = "10.0.0.3"},
         Forward("06C:0A.00.00.03:p-C738_0A.00.00.02:p-0019_0A.09.08.07_00000003_00000007")},
        {"NumbersAreCutToTheirDigits",
         "",
         {.protocol = 0x111, .source_port = 0x1C738, .destination_port = 0x20019},
         Forward("11C:0A.00.00.01:p-C738_0A.00.00.02:p-0019_" + kMerged)},
        {"HttpMerged",
         "",
         {.destination_port = 80},
         Forward("06C:0A.00.00.01:p-FFFF_0A.00.00.02:p-0050_" + kMerged)},
        {"HttpsMergedFromTheServer",
         "",
         {.source_port = 443},
         Forward("06C:0A.00.00.01:p-01BB_0A.00.00.02:p-FFFF_" + kMerged)},
        {"DnsBothSidesTheSourceServes",
         "",
         {.protocol = 17, .source_port = 53, .destination_port = 53},
         Forward("11C:0A.00.00.01:p-0035_0A.00.00.02:p-FFFF_" + kMerged)},
        {"HttpNotMerged",
         Off("MergeHTTP"),
         {.destination_port = 80},
         Forward("06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_" + kMerged)},
    }),
    NameOf);

TEST(SFlowMetering, VlanNumbersOfAnySize) {
  const auto calls = [](std::uint32_t in, std::uint32_t out) {
    return Calls(
        "", SFlowPacket().Flow({.elements = {Data({}), {1001, Words({in, 0, out, 0})}}}).Build(),
        "COUNTERID_VLAN");
  };
  const auto lines = [](const std::string& in, const std::string& out) {
    const std::string update = "UpdateCounter COUNTERID_VLAN ";
    return Lines{update + in + " 0 6000", update + in + " 1 6000", update + out + " 0 6000",
                 update + out + " 2 6000"};
  };
  EXPECT_EQ(calls(0, 0xFFF), lines("0000", "0FFF"));
  EXPECT_EQ(calls(0xFFFF, 0x10000), lines("FFFF", "10000"));
  EXPECT_EQ(calls(0xFFFFFFFF, 0x0ABCDEF), lines("FFFFFFFF", "ABCDEF"));
}

struct FilterRow {
  const char* what;
  std::string settings;
  bool passes;
};

// The packet goes from 10.0.0.1 to 10.0.0.2, in at 3 and out at 7 of 10.9.8.7.
TEST(SFlowMetering, Filters) {
  const auto list = [](const char* name, const char* items) {
    return "<" + std::string(name) + ">" + items + "</" + name + ">";
  };
  const FilterRow rows[] = {
      {"included input", list("FilterInterfacesInclude", "x,0A.09.08.07_00000003"), true},
      {"included output", list("FilterInterfacesInclude", "0A.09.08.07_00000007"), true},
      {"other exporter", list("FilterInterfacesInclude", "0A.09.08.08_00000003"), false},
      {"lower-case item", list("FilterInterfacesInclude", "0a.09.08.07_00000003"), false},
      {"readable item", list("FilterInterfacesInclude", "10.9.8.7_3"), false},
      {"one excluded", list("FilterInterfacesExclude", "0A.09.08.07_00000003"), true},
      {"both excluded",
       list("FilterInterfacesExclude", "0A.09.08.07_00000007,0A.09.08.07_00000003"), false},
      {"included source", list("FilterHostsInclude", "10.0.0.1"), true},
      {"included destination", list("FilterHostsInclude", "192.0.2.1,10.0.0.2"), true},
      {"included none", list("FilterHostsInclude", "10.0.0.3"), false},
      {"included rubbish", list("FilterHostsInclude", "rubbish"), true},
      {"host excluded", list("FilterHostsExclude", "10.0.0.1"), true},
      {"both hosts excluded", list("FilterHostsExclude", "10.0.0.2,10.0.0.1"), false},
      {"interface passes, host not",
       list("FilterInterfacesInclude", "0A.09.08.07_00000003") +
           list("FilterHostsInclude", "10.0.0.3"),
       false},
  };
  for (const FilterRow& row : rows) {
    EXPECT_EQ(Calls(row.settings, Datagram({}), "TOTALBW").size(), row.passes ? 1U : 0U)
        << row.what;
    EXPECT_EQ(Calls(row.settings, Datagram({}), "FLOWGEN").size(), 1U) << row.what;
  }
}

TEST(SFlowMetering, EmptyAndAbsentDatagrams) {
  RecordingHost host;
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  EXPECT_EQ(host.Count(meter, Bytes()), kStatusOk);
  host.Fail("GetBuffer");
  EXPECT_EQ(host.Count(meter, Datagram({})), kStatusOk);
  EXPECT_THAT(host.Take(), IsEmpty());
}

TEST(SFlowMetering, NeedsNoIpHeader) {
  RecordingHost host;
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Forget();
  EXPECT_EQ(host.CountWithoutIp(meter, Datagram({})), kStatusOk);
  EXPECT_EQ(host.Take("TOTALBW").size(), 1U);
}

}  // namespace
}  // namespace flow::test
