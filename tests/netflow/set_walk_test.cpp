// The walk over the sets of a v9 packet and an IPFIX message.

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

struct Case {
  const char* name;
  Bytes datagram;
  std::size_t flows;
  const char* log = "";
  bool counted = true;
};

template <std::size_t N>
void Check(const Case (&cases)[N]) {
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy("<MeterNetflowSources>true</MeterNetflowSources>" + std::string(kFlowsOnly));
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    EXPECT_EQ(host.Count(meter, row.datagram), 1U);
    const Texts lines = host.Take();
    EXPECT_THAT(FlowsIn(lines), SizeIs(row.flows));
    std::string others;
    for (const std::string& line : lines) {
      if (line.starts_with("UpdateCounterKeyLen COUNTERID_FLOWGEN")) others += line;
      if (line.starts_with("Log")) others += line;
    }
    EXPECT_EQ(others, row.log + (row.counted ? "UpdateCounterKeyLen COUNTERID_FLOWGEN 11 "
                                               "C0.00.02.01 1 " +
                                                   std::to_string(row.datagram.size())
                                             : std::string()));
  }
}

Set Flow(std::uint16_t id = 256) { return Data(FlowRecord(), id); }  // 33 bytes

Bytes Longer(Bytes datagram, std::size_t more) {
  datagram.resize(datagram.size() + more);
  return datagram;
}

TEST(SetWalk, V9) {
  const auto packet = [](std::uint16_t count = 9) {
    return V9(Learn(kFlowFields)).WithCount(count);
  };
  // clang-format off
  const Case cases[] = {
      {"TemplateAndData", packet().Add(Flow()).Build(), 1},
      {"CountEndsTheWalk", packet(1).Add(Flow()).Build(), 0},
      {"CountZero", packet(0).Add(Flow()).Build(), 0},
      {"CountIsOfSets", packet(2).Add(Flow().Record(FlowRecord())).Build(), 2},
      {"SetLongerThanPacket", packet().Add(Flow()).Add(Flow().WithLength(34)).Build(), 1},
      {"SetLength3", packet().Add(Set(256).WithLength(3)).Add(Flow()).Build(), 0},
      {"SetLength0", packet().Add(Set(256).WithLength(0)).Add(Flow()).Build(), 0},
      {"EmptySet", packet().Add(Set(256)).Add(Flow()).Build(), 1},
      {"UnusedIds", packet().Add(Flow(2)).Add(Flow(3)).Add(Flow(255)).Add(Flow()).Build(), 1},
      {"UnknownTemplate", packet().Add(Flow(257)).Add(Flow()).Build(), 1},
      {"TemplateTooLate", V9(Flow(), Learn(kFlowFields)).Build(), 0},
      {"TemplateThatOverflows", packet().Add(Learn({}, 300).Pad(1)).Add(Flow()).Build(), 1,
       "Log 5 template record will overflow "},
  };
  // clang-format on
  Check(cases);
}

TEST(SetWalk, Ipfix) {
  const auto message = [] { return IpfixMessage().Add(Set(2).Template(256, kFlowFields)); };
  // clang-format off
  const Case cases[] = {
      {"TemplateAndData", message().Add(Flow()).Build(), 1},  // 60 and 33 bytes
      {"MessageLongerThanDatagram", message().Add(Flow()).WithLength(94).Build(), 0,
       "Log 8 Truncated packet, IPFIX record len > captured PCAP len", false},
      {"MessageShorter", message().Add(Flow()).WithLength(60).Build(), 0},
      {"MessageShorterThanHeader", message().WithLength(15).Build(), 0},
      {"MessageOfNoLength", message().WithLength(0).Build(), 0},
      {"SetLongerThanMessage", message().Add(Flow()).Add(Flow().WithLength(34)).Build(), 1,
       "Log 5 Truncated IPFIX, setheader len 34 > avail packet len 33", false},
      {"SetOfLargestLength", message().Add(Flow().WithLength(65535)).Add(Flow()).Build(), 0,
       "Log 5 Truncated IPFIX, setheader len 65535 > avail packet len 66", false},
      {"SetLength3", message().Add(Set(256).WithLength(3)).Add(Flow()).Build(), 0},
      {"SetLength0", message().Add(Set(256).WithLength(0)).Add(Flow()).Build(), 0},
      {"EmptySet", message().Add(Set(256)).Add(Flow()).Build(), 1},
      {"OneByteLeft", Longer(message().Add(Flow()).WithLength(94).Build(), 1), 1},
      {"ThreeBytesLeft", Longer(message().Add(Flow()).WithLength(96).Build(), 3), 1},
      {"UnusedIds", message().Add(Flow(0)).Add(Flow(4)).Add(Flow(255)).Add(Flow()).Build(), 1},
      {"TemplateSetOfV9", IpfixMessage().Add(Learn(kFlowFields)).Add(Flow()).Build(), 0},
  };
  // clang-format on
  Check(cases);
}

// The set with id 1 is an options template in v9 and data in IPFIX.
TEST_F(MeterTest, SetWithIdOne) {
  Start("",
        "<StaticTemplates><Template id='1' name='one'><Fields>8,12,1</Fields></Template>"
        "</StaticTemplates>");
  const Set set = Set(1).Record(Numbers({0x0A000001, 0x0A000002, 77}));
  Send(V9(set));
  EXPECT_THAT(Flows(), IsEmpty());
  Send(IpfixMessage().Add(set).Build());
  EXPECT_THAT(Flows(), ElementsAre("0 10.0.0.1:0 > 10.0.0.2:0 if 0 > 0, 77 bytes 0 packets"));
}

}  // namespace
}  // namespace flow::test
