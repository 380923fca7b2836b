// SPDX-License-Identifier: Apache-2.0
// What is learnt of template sets and options templates, from the wire and from the other meters of
// the host; what is refused; and the dump.

#include "flowhandlers/identifiers.h"
#include "tests/netflow/meter_test.h"
#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Exporter kFrom = {.address = "10.0.0.7", .port = 2055};

// A message as a meter posts it: the layer's first 24 bytes, the set.
Bytes Message(const Set& set, std::size_t packet_size = 0) {
  Bytes headers = UdpHeaders(kFrom, packet_size);
  headers.resize(24);
  return Wire().Raw(headers).Raw(set.Build()).Get();
}

Bytes Packet(int version, const Set& set) {
  // The set 5, which means nothing, makes every message long enough to be looked at.
  return version == 9 ? V9(set).WithCount(9).Build()
                      : IpfixMessage().Add(set).Add(Set(5).Pad(4)).Build();
}

enum class Then { kPosted, kSilent, kOverflow };
using enum Then;

struct Case {
  const char* name;
  Set set;
  const char* learnt;
  Then then = kPosted;
};

// A meter that has learnt a template 300, of field 9, from kFrom.
struct Learner {
  explicit Learner(int version) {
    host.Policy(kFlowsOnly).Attach(meter);
    host.Count(meter, Packet(version, Set(version == 9 ? 0 : 2).Template(300, {{9, 1}})), kFrom);
    host.Forget();
  }
  RecordingHost host;
  ComponentOf<CPINetflowMeter> meter;
};

// What comes from the wire is learnt and posted, what comes over the channel is learnt.
void Check(int version, const std::vector<Case>& cases) {
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    const std::string learnt = "10.0.0.7:2055 " + std::string(row.learnt);
    const Texts messages(row.then == kOverflow ? 1 : 0, "Log 5 template record will overflow ");
    Learner wire(version);
    EXPECT_EQ(wire.host.Count(wire.meter, Packet(version, row.set), kFrom), 1U);
    EXPECT_THAT(TemplatesOf(*wire.meter), ElementsAre(learnt));
    EXPECT_EQ(wire.meter->LastSetError() == SetError::kTemplateOverflow, row.then == kOverflow);
    const Texts lines = wire.host.Take();
    EXPECT_EQ(Digest(lines), messages);
    EXPECT_EQ(lines.size() - messages.size(), row.then == kPosted ? 1U : 0U) << "is posted";
    Learner channel(version);
    EXPECT_EQ(channel.host.Deliver(channel.meter, CHANNELID_NETFLOW_TEMPLATES, Message(row.set)),
              0U);
    EXPECT_THAT(TemplatesOf(*channel.meter), ElementsAre(learnt));
    EXPECT_EQ(channel.host.Take(), messages);
  }
}

// clang-format off
TEST(Templates, V9) {
  Check(9, {
      {"ThreeRecords", Learn({{8, 4}, {12, 4}}).Template(257, {}).Template(258, {{1, 8}}),
       "256(8:4 12:4) 257() 258(1:8) 300(9:1)"},
      {"Redefined", Learn({{1, 2}}, 300), "300(1:2)"},
      {"Emptied", Learn({}, 300), "300()"},
      {"AnyId", Learn({{1, 4}}, 0).Template(65535, {}), "0(1:4) 300(9:1) 65535()"},
      {"HighBitOfType", Learn({{0x8001, 8}, {8, 4}}), "256(32769:8 8:4) 300(9:1)"},
      {"OneFieldTooMany", Learn({{8, 4}}).Template(300, {{1, 2}}, 2), "256(8:4) 300(9:1)", kOverflow},
      {"OneByteMissing", Set(0).Raw(Wire().U16(300).U16(1).U16(8).U8(0)), "300(9:1)", kOverflow},
      {"OneByteLeft", Learn({{8, 4}}).Pad(1), "256(8:4) 300(9:1)", kOverflow},
      {"FourBytesLeft", Learn({{8, 4}}).Pad(4), "0() 256(8:4) 300(9:1)"},
  });
}

TEST(Templates, V9Options) {
  const Fields options = {{34, 4}, {35, 1}};
  // Two lengths, then specifiers (1, 4), (2, 4), ...
  const auto raw = [](std::uint16_t scopes, std::uint16_t option_length, std::uint32_t specifiers) {
    Wire wire = Wire().U16(256).U16(scopes).U16(option_length);
    for (std::uint32_t i = 1; i <= specifiers; ++i) wire.U32(i << 16 | 4);
    return Set(1).Raw(wire);
  };
  Check(9, {
      {"ScopesFirst", V9Options(256, {{1, 4}}, options), "256(15611:4 34:4 35:1) 300(9:1)"},
      {"Redefines", V9Options(300, {{1, 4}}, options), "300(15611:4 34:4 35:1)"},
      {"LargestScope", V9Options(256, {{65535, 4}}, {}), "256(81145:4) 300(9:1)"},
      {"OnlyTheFirst", V9Options(256, {{1, 4}}, {}).Pad(6), "256(15611:4) 300(9:1)"},
      {"ScopeLengthCuts", raw(5, 4, 3), "256(15611:4 15612:4 3:4) 300(9:1)"},
      {"OptionLengthCuts", raw(4, 5, 3), "256(15611:4 2:4 3:4) 300(9:1)"},
      {"SetCutsLastOption", raw(4, 5, 2).Pad(1), "256(15611:4 2:4) 300(9:1)"},
      {"ScopesBeyondSet", raw(9, 0, 2), "300(9:1)", kSilent},
      {"RoundedScopesBeyondSet", raw(5, 0, 1).Pad(1), "300(9:1)", kSilent},
      {"OptionsBeyondSet", raw(4, 5, 2), "300(9:1)", kSilent},
      {"HeaderCut", Set(1).Raw(Wire().U16(300).U16(0).U8(0)), "300(9:1)", kSilent},
  });
}

TEST(Templates, Ipfix) {
  const auto specifier = [](std::size_t more) {
    return Set(2).Raw(Numbers({0x012C0001, 0x80010008}).Zeros(more));
  };
  const Fields scope = {{149, 4}};
  const Fields options = {{305, 4}, {7, 2, 9}};
  Check(10, {
      {"EnterpriseField", Set(2).Template(256, {{1, 8, 29305}, {8, 4}}), "256(32769:8 8:4) 300(9:1)"},
      {"NoEnterpriseNumber", specifier(0), "300(9:1)", kOverflow},
      {"EnterpriseNumberCut", specifier(3), "300(9:1)", kOverflow},
      // By their count the fields would fit.
      {"SecondNumberMissing", Set(2).Raw(Numbers({0x012C0002, 0x80010008, 29305, 0x80020008})),
       "300(9:1)", kOverflow},
      {"Options", IpfixOptions(256, scope, options), "256(149:4 305:4 32775:2) 300(9:1)"},
      {"ScopeCountNotUsed", IpfixOptions(256, scope, options, 1, 65535), "256(149:4) 300(9:1)"},
      {"FieldsBeyondSet", IpfixOptions(300, scope, options, 5), "300()", kSilent},
      {"EnterpriseNumberBeyondSet", IpfixOptions(300, {{1, 4, 9}}, {{2, 4}}, 3), "300()", kSilent},
      {"NoScopeCount", Set(3).Raw(Numbers({0x012C0000})), "300()", kSilent},
      {"HalfAScopeCount", Set(3).Raw(Numbers({0x012C0000}).U8(0)), "300()", kSilent},
      {"NoFieldCount", Set(3).Raw(Wire().U16(300).U8(0)), "300(9:1)", kSilent},
  });
}

// A message bounds a template set, its own length an options template.
TEST(Templates, BoundsOfMessages) {
  const Set learn = Learn({{8, 4}});
  const Set options = V9Options(256, {{1, 4}}, {});          // 14 bytes
  const Set ipfix = IpfixOptions(256, {{149, 4}}, {});       // 14 bytes
  const Wire more = Numbers({0x01010000});
  const std::string unknown = "Log 5 Unknown FlowSet ID on broadcast channel, 0 1 2 expected, found: ";
  const struct {
    const char* name;
    Set set;
    const char* learnt;
    Texts messages = {};
  } cases[] = {
      {"LongerMessage", Set(learn).Raw(more).WithLength(12), "256(8:4) 257() 300(9:1)"},
      {"SetLengthIsNotRead", Set(learn).WithLength(4), "256(8:4) 300(9:1)"},
      {"V9OptionsLongerMessage", Set(options).Raw(more).WithLength(14), "256(15611:4) 300(9:1)"},
      {"V9OptionsBeyondMessage", Set(options).WithLength(15), "300(9:1)"},
      {"V9OptionsBeyondTheirLength", Set(options).WithLength(13), "300(9:1)"},
      {"V9OptionsLength3", Set(options).WithLength(3), "300(9:1)"},
      {"IpfixOptionsLongerMessage", Set(ipfix).Raw(more).WithLength(14), "256(149:4) 300(9:1)"},
      {"IpfixOptionsBeyondMessage", Set(ipfix).WithLength(15), "300(9:1)"},
      {"IpfixOptionsBeyondTheirLength", Set(ipfix).WithLength(13), "256() 300(9:1)"},
      {"Id5", Set(5).Raw(more), "300(9:1)", {unknown + "5"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    Learner learner(9);
    learner.host.Deliver(learner.meter, CHANNELID_NETFLOW_TEMPLATES, Message(row.set));
    EXPECT_THAT(TemplatesOf(*learner.meter), ElementsAre("10.0.0.7:2055 " + std::string(row.learnt)));
    EXPECT_EQ(learner.host.Take(), row.messages);
  }
}
// clang-format on

class ChannelOfTemplates : public MeterTest {
 protected:
  Status Deliver(const Bytes& message, const GUID& channel = CHANNELID_NETFLOW_TEMPLATES) {
    return host_.Deliver(meter_, channel, message);
  }
};

// An exporter whose templates reached only the other instance.
TEST_F(ChannelOfTemplates, OneLearnsForAll) {
  Start();
  const auto other = host_.SharedChannels().Attach<CPINetflowMeter>();
  host_.Connect(meter_).Connect(other);
  host_.Count(other, V9(Learn(kFlowFields)).Build(), kFrom);
  host_.Count(other, IpfixMessage().Add(Set(2).Template(300, kFlowFields)).Build(), kFrom);
  EXPECT_THAT(host_.Take("PostChannelMessage"), SizeIs(2)) << "none is posted onwards";
  Send(V9(Data(FlowRecord())), kFrom);
  Send(IpfixMessage().Add(Data(FlowRecord(), 300)).Build(), kFrom);
  EXPECT_THAT(Said(), ElementsAre(kFlow, kFlow));
  Send(V9(Data(FlowRecord())), {.address = kFrom.address, .port = 2056});
  EXPECT_THAT(Said(), IsEmpty()) << "another port is another exporter";
}

// What is posted, byte by byte, and the lines in the log of both sides.
TEST_F(ChannelOfTemplates, MessageAndLog) {
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

TEST_F(ChannelOfTemplates, IgnoredAndShortMessages) {
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
  // The port is read where the header's length points, and inside the message alone.
  for (const std::uint8_t version_and_length :
       std::to_array<std::uint8_t>({0x45, 0x46, 0x4F, 0x43})) {
    Bytes moved = message;
    moved[0] = version_and_length;
    Deliver(moved);
  }
  EXPECT_THAT(TemplatesOf(*meter_), UnorderedElementsAre("10.0.0.7:0 256()", "10.0.0.7:2055 256()",
                                                         "10.0.0.7:2560 256()"));
}

class TemplateDump : public MeterTest {
 protected:
  std::string DumpPath() const { return host_.Directory() + "/TemplateDump-1.txt"; }
};

// To the letter but for the times, "Mon Nov 16 19:51:16 2026-000042".
TEST_F(TemplateDump, File) {
  Start();
  Send(V9(Learn({{8, 4}, {58, 2}, {0xFFFF, 65535}})), {.address = "10.0.0.2", .port = 2055});
  Send(V9(V9Options(257, {{1, 4}}, {{34, 4}})), {.address = "10.0.0.1", .port = 2055});
  Send(V9(Learn({}, 300)), {.port = 1});
  std::string dump = ReadFile(DumpPath());
  EXPECT_THAT(dump, HasSubstr("-000000 -----\n")) << "a receipt has no fraction";
  for (std::size_t at = 0; (at = dump.find("ed at ", at)) != std::string::npos;) {
    at += 6;
    if (dump[at + 16] == ':' && dump[at + 24] == '-') dump.replace(at, 31, "TIME");
  }
  // In the order of the keys, which the wire's bytes make on a little-endian machine.
  EXPECT_EQ(dump,
            "Dumped at TIME\n"
            "---- Templates for Router 192.0.2.1 Port 1 -----\n"
            "  ---- Received at TIME -----\n"
            "  ---- Template ID 300 -----\n"
            "Dumped at TIME\n"
            "---- Templates for Router 10.0.0.1 Port 2055 -----\n"
            "  ---- Received at unknown-timestamp -----\n"
            "  ---- Template ID 257 -----\n"
            "        1 15611\t     4\t             Scope-System\n"
            "        2    34\t     4\t        SAMPLING_INTERVAL\n"
            "Dumped at TIME\n"
            "---- Templates for Router 10.0.0.2 Port 2055 -----\n"
            "  ---- Received at TIME -----\n"
            "  ---- Template ID 256 -----\n"
            "        1     8\t     4\t            IPV4_SRC_ADDR\n"
            "        2    58\t     2\t                 SRC_VLAN\n"
            "        3 65535\t 65535\t                  Unknown\n");
}

TEST_F(TemplateDump, ForNewExportersAlone) {
  Start();
  const auto dumps = [&](const V9Packet& packet, std::uint16_t port) {
    WriteFile(DumpPath(), "");
    Send(packet, {.port = port});
    return !ReadFile(DumpPath()).empty();
  };
  EXPECT_FALSE(dumps(V9(V9Options(257, {{1, 4}}, {})), 1)) << "options make no dump";
  EXPECT_FALSE(dumps(V9(Learn({{8, 4}})), 1)) << "known by its options";
  EXPECT_TRUE(dumps(V9(Learn({{8, 4}})), 2));
  EXPECT_FALSE(dumps(V9(Learn({{12, 4}}, 257)), 2));
  // A set that is given up has nothing dumped, although its first record made the exporter known.
  EXPECT_FALSE(dumps(V9(Learn({}).Pad(1)), 3));
  EXPECT_THAT(TemplatesOf(*meter_), SizeIs(3));
  WriteFile(DumpPath(), "");
  host_.Deliver(meter_, CHANNELID_NETFLOW_TEMPLATES, Message(Learn({})));
  EXPECT_NE(ReadFile(DumpPath()), "");
}

TEST_F(TemplateDump, NeedsAPlace) {
  Start();
  host_.WorkDirectory(host_.Directory() + "/none");
  Send(V9(Learn({})), {.port = 1});
  EXPECT_THAT(Said(), ElementsAre(MatchesRegex("Log 4 Dump Template DB Error No such file or "
                                               "directory f=/.*/none/TemplateDump-1.txt")));
  host_.WorkDirectory(std::nullopt);
  Send(V9(Learn({})), {.port = 2});
  EXPECT_THAT(Said(), IsEmpty());
}

}  // namespace
}  // namespace flow::test
