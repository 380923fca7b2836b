// Templates on their way between the meters of a host.

#include "plugin/identifiers.h"
#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

const Exporter kFrom = {.address = "10.0.0.7", .port = 2055};

// A message as a meter posts it: the layer's first 24 bytes, the set.
Bytes Message(const Set& set, std::size_t packet_size = 0) {
  Bytes headers = UdpHeaders(kFrom, packet_size);
  headers.resize(24);
  return Wire().Raw(headers).Raw(set.Build()).Get();
}

class TemplateSharing : public MeterTest {
 protected:
  Status Deliver(const Bytes& message, const GUID& channel = CHANNELID_NETFLOW_TEMPLATES) {
    return host_.Deliver(meter_, channel, message);
  }
};

// An exporter whose templates reached only the other instance.
TEST_F(TemplateSharing, OneLearnsForAll) {
  Start();
  const auto other = host_.SharedChannels().Attach<CPINetflowMeter>();
  host_.Connect(meter_).Connect(other);
  host_.Count(other, V9(Learn(kFlowFields), V9Options(257, {{1, 4}}, {{34, 4}})).Build(), kFrom);
  host_.Count(other, IpfixMessage().Add(Set(2).Template(300, kFlowFields)).Build(), kFrom);
  EXPECT_THAT(host_.Take("PostChannelMessage"), testing::SizeIs(3)) << "none is posted onwards";
  EXPECT_EQ(TemplatesOf(*meter_), TemplatesOf(*other));
  Send(V9(Data(FlowRecord())), kFrom);
  Send(IpfixMessage().Add(Data(FlowRecord(), 300)).Build(), kFrom);
  EXPECT_THAT(Flows(), ElementsAre(kFlow, kFlow));
  Send(V9(Data(FlowRecord())), {.address = kFrom.address, .port = 2056});
  EXPECT_THAT(Flows(), IsEmpty()) << "another port is another exporter";
}

// What is posted, byte by byte, and the lines in the log of both sides.
TEST_F(TemplateSharing, MessageAndLog) {
  Start("<LogTemplateMessages>true</LogTemplateMessages>");
  const Set set = Learn({{8, 4}}).Template(257, {});
  Send(V9(set), kFrom);
  EXPECT_THAT(
      host_.Take(),
      ElementsAre("PostChannelMessage CHANNELID_NETFLOW_TEMPLATES CLSID_PI_NETFLOWMETER 40 " +
                      HexText(Message(set, 20 + 16)),
                  MatchesRegex("Log 8 \\[0x[0-9a-f]+\\] Broadcasted Flow Template ID 256 from "
                               "router 10\\.0\\.0\\.7 to other filters")));
  Deliver(Message(set));
  EXPECT_THAT(host_.Take(),
              ElementsAre(MatchesRegex("Log 8 \\[0x[0-9a-f]+\\] Received a broadcast Template ID "
                                       "256 originating router=10\\.0\\.0\\.7")));
  Send(V9(Set(0), Set(4)).WithCount(1), kFrom);
  EXPECT_THAT(host_.Take(), ElementsAre(HasSubstr(" 28 "), HasSubstr(" Template ID 0 from ")))
      << "a set without a record";
}

TEST_F(TemplateSharing, Received) {
  const Set v9 = Learn({{0x8001, 8}, {8, 4}});
  const Set options = V9Options(256, {{1, 4}}, {{34, 4}});
  const Set ipfix = IpfixOptions(256, {{149, 4}}, {{34, 4, 9}});
  const Wire more = Numbers({0x01010000});
  constexpr char kUnknown[] =
      "Log 5 Unknown FlowSet ID on broadcast channel, 0 1 2 expected, found: ";
  // clang-format off
  const struct {
    const char* name;
    Set set;
    const char* learnt;
    std::string log = "";
  } cases[] = {
      {"V9", v9, " 256(32769:8 8:4)"},
      {"Ipfix", Set(2).Template(256, {{1, 8, 9}, {8, 4}}), " 256(32769:8 8:4)"},
      // The message bounds a template set, its own length an options template.
      {"LongerMessage", Set(v9).Raw(more).WithLength(16), " 256(32769:8 8:4) 257()"},
      {"LengthIsNotRead", Set(v9).WithLength(4), " 256(32769:8 8:4)"},
      {"Overflow", Set(0).Template(256, {{8, 4}}, 2), "", "Log 5 template record will overflow \n"},
      {"V9Options", options, " 256(15611:4 34:4)"},
      {"V9OptionsLongerMessage", Set(options).Raw(more).WithLength(18), " 256(15611:4 34:4)"},
      {"V9OptionsBeyondMessage", Set(options).WithLength(19), ""},
      {"V9OptionsBeyondTheirLength", Set(options).WithLength(17), ""},
      {"V9OptionsLength3", Set(options).WithLength(3), ""},
      {"IpfixOptions", ipfix, " 256(149:4 32802:4)"},
      {"IpfixOptionsLongerMessage", Set(ipfix).Raw(more).WithLength(22), " 256(149:4 32802:4)"},
      {"IpfixOptionsBeyondMessage", Set(ipfix).WithLength(23), ""},
      {"IpfixOptionsBeyondTheirLength", Set(ipfix).WithLength(21), " 256()"},
      {"IpfixOptionsLength0", Set(ipfix).WithLength(0), ""},
      {"Id5", Set(5).Raw(Numbers({1, 2})), "", kUnknown + std::string("5\n")},
      {"Id256", Set(256).Raw(Numbers({1, 2})), "", kUnknown + std::string("256\n")},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy(kFlowsOnly);
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    EXPECT_EQ(host.Deliver(meter, CHANNELID_NETFLOW_TEMPLATES, Message(row.set)), kStatusOk);
    const Texts learnt = TemplatesOf(*meter);
    EXPECT_EQ(learnt.empty() ? "" : learnt[0],
              *row.learnt == '\0' ? "" : "10.0.0.7:2055" + std::string(row.learnt));
    EXPECT_EQ(host.TakeText(), row.log) << "nothing is posted";
  }
}

TEST_F(TemplateSharing, IgnoredAndShortMessages) {
  Start();
  const Bytes message = Message(Learn({}));
  EXPECT_EQ(Deliver(message, CLSID_PI_NETFLOWMETER), kStatusOk);
  EXPECT_EQ(meter_->OnChannelMessage(CHANNELID_NETFLOW_TEMPLATES, 100, nullptr), kStatusOk);
  for (std::ptrdiff_t size = 0; size < 30; ++size) {
    EXPECT_EQ(Deliver(Bytes(message.begin(), message.begin() + size)), kStatusOk);
  }
  EXPECT_THAT(host_.Take(), IsEmpty());
  Deliver(Bytes(message.begin(), message.begin() + 30));
  EXPECT_THAT(host_.Take(), ElementsAre("Log 5 template record will overflow "));
  EXPECT_THAT(TemplatesOf(*meter_), IsEmpty());
}

// The key is read where the header's length points, and inside the message alone.
TEST_F(TemplateSharing, ExporterKey) {
  const std::pair<std::uint8_t, const char*> cases[] = {{0x45, "10.0.0.7:2055 256()"},
                                                        {0x46, "10.0.0.7:0 256()"},
                                                        {0x4F, "10.0.0.7:0 256()"},
                                                        {0x43, "10.0.0.7:2560 256()"}};
  for (const auto& [version_and_length, learnt] : cases) {
    const auto meter = host_.Attach<CPINetflowMeter>();
    Bytes message = Message(Learn({}));
    message[0] = version_and_length;
    host_.Deliver(meter, CHANNELID_NETFLOW_TEMPLATES, message);
    EXPECT_THAT(TemplatesOf(*meter), ElementsAre(learnt));
  }
}

TEST_F(TemplateSharing, DumpForNewExporters) {
  Start();
  host_.WithQueries();
  Deliver(Message(Learn({})));
  EXPECT_THAT(host_.TakeText(), HasSubstr("~GetWorkDirectory"));
  Deliver(Message(Learn({})));
  EXPECT_THAT(host_.TakeText(), Not(HasSubstr("~GetWorkDirectory")));
}

}  // namespace
}  // namespace flow::test
