// SPDX-License-Identifier: Apache-2.0
// The walk over the sets of a v9 packet and an IPFIX message.

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

Set Flow(std::uint16_t id = 256) { return Data(FlowRecord(), id); }  // 33 bytes

V9Packet Packet(std::uint16_t count = 9) { return V9(Learn(kFlowFields)).WithCount(count); }

IpfixMessage Message() { return IpfixMessage().Add(Set(2).Template(256, kFlowFields)); }  // 60

Bytes Longer(Bytes datagram, std::size_t more) {
  datagram.resize(datagram.size() + more);
  return datagram;
}

TEST(SetWalk, Sets) {
  // clang-format off
  const struct {
    const char* name;
    Bytes datagram;
    std::size_t flows;
    const char* log = "";
    bool counted = true;
  } cases[] = {
      {"V9", Packet().Add(Flow()).Build(), 1},
      {"V9CountEndsTheWalk", Packet(1).Add(Flow()).Build(), 0},
      {"V9CountIsOfSets", Packet(2).Add(Flow().Record(FlowRecord())).Build(), 2},
      {"V9SetLongerThanPacket", Packet().Add(Flow()).Add(Flow().WithLength(34)).Build(), 1},
      {"V9SetLength3", Packet().Add(Set(256).WithLength(3)).Add(Flow()).Build(), 0},
      {"V9SetLength0", Packet().Add(Set(256).WithLength(0)).Add(Flow()).Build(), 0},
      {"V9EmptySet", Packet().Add(Set(256)).Add(Flow()).Build(), 1},
      {"V9UnusedIds", Packet().Add(Flow(2)).Add(Flow(3)).Add(Flow(255)).Add(Flow()).Build(), 1},
      {"V9UnknownTemplate", Packet().Add(Flow(257)).Add(Flow()).Build(), 1},
      {"V9TemplateTooLate", V9(Flow(), Learn(kFlowFields)).Build(), 0},
      {"V9Overflow", Packet().Add(Learn({}, 300).Pad(1)).Add(Flow()).Build(), 1,
       "Log 5 template record will overflow "},
      {"Ipfix", Message().Add(Flow()).Build(), 1},
      {"IpfixLongerThanDatagram", Message().Add(Flow()).WithLength(94).Build(), 0,
       "Log 8 Truncated packet, IPFIX record len > captured PCAP len", false},
      {"IpfixShorterThanDatagram", Message().Add(Flow()).WithLength(60).Build(), 0},
      {"IpfixShorterThanHeader", Message().WithLength(15).Build(), 0},
      {"IpfixSetLongerThanMessage", Message().Add(Flow()).Add(Flow().WithLength(34)).Build(), 1,
       "Log 5 Truncated IPFIX, setheader len 34 > avail packet len 33", false},
      {"IpfixSetOfLargestLength", Message().Add(Flow().WithLength(65535)).Add(Flow()).Build(), 0,
       "Log 5 Truncated IPFIX, setheader len 65535 > avail packet len 66", false},
      {"IpfixSetLength0", Message().Add(Set(256).WithLength(0)).Add(Flow()).Build(), 0},
      {"IpfixEmptySet", Message().Add(Set(256)).Add(Flow()).Build(), 1},
      {"IpfixThreeBytesLeft", Longer(Message().Add(Flow()).WithLength(96).Build(), 3), 1},
      {"IpfixUnusedIds", Message().Add(Flow(0)).Add(Flow(4)).Add(Flow(255)).Add(Flow()).Build(), 1},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy("<MeterNetflowSources>true</MeterNetflowSources>" + kFlowsOnly);
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    EXPECT_EQ(host.Count(meter, row.datagram), 1U);
    Texts said(row.flows, kFlow);
    if (*row.log != '\0') said.push_back(row.log);
    if (row.counted) {
      said.push_back("volume " + std::to_string(row.datagram.size()) + " of C0.00.02.01");
    }
    EXPECT_THAT(Digest(host.Take()), testing::UnorderedElementsAreArray(said));
  }
}

// Not even one without records, which would go to the other meters.
TEST_F(MeterTest, LastFourBytesOfV9BeginNoSet) {
  Start();
  Send(Packet().Add(Set(0)));
  EXPECT_THAT(host_.Take("PostChannelMessage"), testing::SizeIs(1));
  Send(Packet().Add(Set(0)).Add(Set(256)));
  EXPECT_THAT(host_.Take("PostChannelMessage"), testing::SizeIs(2));
}

// The set with id 1 is an options template in v9 and data in IPFIX.
TEST_F(MeterTest, SetWithIdOne) {
  Start("",
        "<StaticTemplates><Template id='1' name='one'><Fields>8,12,1</Fields></Template>"
        "</StaticTemplates>");
  const Set set = Set(1).Record(Numbers({0x0A000001, 0x0A000002, 77}));
  Send(V9(set));
  EXPECT_THAT(Said(), testing::IsEmpty());
  Send(IpfixMessage().Add(set).Build());
  EXPECT_THAT(Said(),
              testing::ElementsAre("0 10.0.0.1:0 > 10.0.0.2:0 if 0 > 0, 77 bytes 0 packets"));
}

}  // namespace
}  // namespace flow::test
