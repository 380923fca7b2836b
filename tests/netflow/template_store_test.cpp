// What is learnt of template sets and options templates, what is refused, and the dump.

#include "tests/netflow/meter_test.h"
#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

enum class Then { kPosted, kSilent, kOverflow };
using enum Then;

struct Case {
  const char* name;
  Set set;
  const char* learnt;
  Then then;
};

// Each set comes from an exporter that has sent a template 300 before, of field 9.
template <std::size_t N>
void Check(std::uint16_t version, const Case (&cases)[N]) {
  const auto packet = [version](const Set& set) {
    // The set 5, which means nothing, makes every message long enough to be looked at.
    return version == 9 ? V9(set).WithCount(9).Build()
                        : IpfixMessage().Add(set).Add(Set(5).Pad(4)).Build();
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy(kFlowsOnly);
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Count(meter, packet(Set(version == 9 ? 0 : 2).Template(300, {{9, 1}})));
    host.Forget();
    EXPECT_EQ(host.Count(meter, packet(row.set)), 1U);
    EXPECT_THAT(TemplatesOf(*meter), ElementsAre("192.0.2.1:50000 " + std::string(row.learnt)));
    EXPECT_EQ(meter->LastSetError() == SetError::kTemplateOverflow, row.then == kOverflow);
    const std::string lines = host.TakeText();
    EXPECT_EQ(lines.find("PostChannelMessage") != std::string::npos, row.then == kPosted);
    EXPECT_EQ(lines == "Log 5 template record will overflow \n", row.then == kOverflow);
  }
}

TEST(TemplateSets, V9) {
  // clang-format off
  const Case cases[] = {
      {"ThreeRecords", Learn({{8, 4}, {12, 4}}).Template(257, {}).Template(258, {{1, 8}}),
       "256(8:4 12:4) 257() 258(1:8) 300(9:1)", kPosted},
      {"SameIdTwice", Learn({{8, 4}}).Template(256, {{12, 4}}), "256(12:4) 300(9:1)", kPosted},
      {"Redefined", Learn({{1, 2}}, 300), "300(1:2)", kPosted},
      {"Emptied", Learn({}, 300), "300()", kPosted},
      {"AnyId", Learn({{1, 4}}, 0).Template(65535, {}), "0(1:4) 300(9:1) 65535()", kPosted},
      {"HighBitOfType", Learn({{0x8001, 8}, {8, 4}}), "256(32769:8 8:4) 300(9:1)", kPosted},
      {"OneFieldTooMany", Learn({{8, 4}}).Template(300, {{1, 2}}, 2), "256(8:4) 300(9:1)", kOverflow},
      {"AllFieldsTooMany", Set(0).Template(300, {{1, 2}}, 65535), "300(9:1)", kOverflow},
      {"OneByteMissing", Set(0).Raw(Wire().U16(300).U16(1).U16(8).U8(0)), "300(9:1)", kOverflow},
      {"OneByteLeft", Learn({{8, 4}}).Pad(1), "256(8:4) 300(9:1)", kOverflow},
      {"ThreeBytesLeft", Learn({{8, 4}}).Pad(3), "256(8:4) 300(9:1)", kOverflow},
      {"FourBytesLeft", Learn({{8, 4}}).Pad(4), "0() 256(8:4) 300(9:1)", kPosted},
  };
  // clang-format on
  Check(9, cases);
}

TEST(TemplateSets, Ipfix) {
  const auto specifier = [](std::size_t more) {
    return Set(2).Raw(Numbers({0x012C0001, 0x80010008}).Zeros(more));
  };
  // clang-format off
  const Case cases[] = {
      {"EnterpriseField", Set(2).Template(256, {{1, 8, 29305}, {8, 4}}),
       "256(32769:8 8:4) 300(9:1)", kPosted},
      {"NoEnterpriseNumber", specifier(0), "300(9:1)", kOverflow},
      {"EnterpriseNumberCut", specifier(3), "300(9:1)", kOverflow},
      {"EnterpriseNumberWhole", specifier(4), "300(32769:8)", kPosted},
      // By their count the fields would fit.
      {"SecondNumberMissing", Set(2).Raw(Numbers({0x012C0002, 0x80010008, 29305, 0x80020008})),
       "300(9:1)", kOverflow},
  };
  // clang-format on
  Check(10, cases);
}

TEST(OptionsTemplates, V9) {
  const Fields options = {{34, 4}, {35, 1}};
  // Two lengths, then specifiers (1, 4), (2, 4), ...
  const auto raw = [](std::uint16_t scopes, std::uint16_t option_length, std::uint32_t specifiers) {
    Wire wire = Wire().U16(256).U16(scopes).U16(option_length);
    for (std::uint32_t i = 1; i <= specifiers; ++i) wire.U32(i << 16 | 4);
    return Set(1).Raw(wire);
  };
  // clang-format off
  const Case cases[] = {
      {"ScopesFirst", V9Options(256, {{1, 4}}, options), "256(15611:4 34:4 35:1) 300(9:1)", kPosted},
      {"Redefines", V9Options(300, {{1, 4}}, options), "300(15611:4 34:4 35:1)", kPosted},
      {"Empty", V9Options(256, {}, {}), "256() 300(9:1)", kPosted},
      {"LargestScope", V9Options(256, {{65535, 4}}, {}), "256(81145:4) 300(9:1)", kPosted},
      {"OnlyTheFirst", V9Options(256, {{1, 4}}, {}).Pad(6), "256(15611:4) 300(9:1)", kPosted},
      {"ScopeLengthCuts", raw(5, 4, 3), "256(15611:4 15612:4 3:4) 300(9:1)", kPosted},
      {"OptionLengthCuts", raw(4, 5, 3), "256(15611:4 2:4 3:4) 300(9:1)", kPosted},
      {"SetCutsLastOption", raw(4, 5, 2).Pad(1), "256(15611:4 2:4) 300(9:1)", kPosted},
      {"ScopesBeyondSet", raw(9, 0, 2), "300(9:1)", kSilent},
      {"RoundedScopesBeyondSet", raw(5, 0, 1).Pad(1), "300(9:1)", kSilent},
      {"OptionsBeyondSet", raw(4, 5, 2), "300(9:1)", kSilent},
      {"LargestLengths", raw(65535, 65535, 2), "300(9:1)", kSilent},
      {"HeaderCut", Set(1).Raw(Wire().U16(300).U16(0).U8(0)), "300(9:1)", kSilent},
  };
  // clang-format on
  Check(9, cases);
}

TEST(OptionsTemplates, Ipfix) {
  const Fields scope = {{149, 4}};
  const Fields options = {{305, 4}, {7, 2, 9}};
  const char* const all = "256(149:4 305:4 32775:2) 300(9:1)";
  // clang-format off
  const Case cases[] = {
      {"ScopesAsReceived", IpfixOptions(256, scope, options), all, kPosted},
      {"ScopeCountNotUsed", IpfixOptions(256, scope, options, 3, 65535), all, kPosted},
      {"FewerFields", IpfixOptions(256, scope, options, 1), "256(149:4) 300(9:1)", kPosted},
      {"FieldsBeyondSet", IpfixOptions(300, scope, options, 5), "300()", kSilent},
      {"LargestCount", IpfixOptions(300, scope, options, 65535), "300()", kSilent},
      {"EnterpriseNumberBeyondSet", IpfixOptions(300, {{1, 4, 9}}, {{2, 4}}, 3), "300()", kSilent},
      {"NoScopeCount", Set(3).Raw(Numbers({0x012C0000})), "300()", kSilent},
      {"HalfAScopeCount", Set(3).Raw(Numbers({0x012C0000}).U8(0)), "300()", kSilent},
      {"NoFieldCount", Set(3).Raw(Wire().U16(300).U8(0)), "300(9:1)", kSilent},
  };
  // clang-format on
  Check(10, cases);
}

class TemplateDump : public MeterTest {
 protected:
  std::string DumpPath() const { return host_.Directory() + "/TemplateDump-1.txt"; }
};

// Address and source port tell exporters apart, source ids do not.
TEST_F(TemplateDump, Exporters) {
  Start();
  Send(V9(Learn({{8, 4}})), {.address = "10.0.0.1", .port = 2055});
  Send(V9(Learn({{12, 4}})), {.address = "10.0.0.1", .port = 2056});
  Bytes other_source = V9(Learn({{1, 4}})).Build();
  other_source[19] = 7;
  Send(other_source, {.address = "10.0.0.1", .port = 2055});
  EXPECT_THAT(TemplatesOf(*meter_),
              ElementsAre("10.0.0.1:2055 256(1:4)", "10.0.0.1:2056 256(12:4)"));
}

// Puts TIME for each "Mon Nov 16 19:51:16 2026-000042".
std::string WithoutTimes(std::string dump) {
  for (std::size_t at = 0; (at = dump.find("ed at ", at)) != std::string::npos;) {
    at += 6;
    if (dump[at + 16] == ':' && dump[at + 24] == '-') dump.replace(at, 31, "TIME");
  }
  return dump;
}

// To the letter but for the times.
TEST_F(TemplateDump, File) {
  Start();
  host_.Instance(7);
  Send(V9(Learn({{8, 4}, {58, 2}, {0xFFFF, 65535}})), {.address = "10.0.0.2", .port = 2055});
  Send(V9(V9Options(257, {{1, 4}}, {{34, 4}})), {.address = "10.0.0.1", .port = 2055});
  Send(V9(Learn({}, 300)), {.port = 1});
  const std::string dump = ReadFile(host_.Directory() + "/TemplateDump-7.txt");
  // In the order of the keys, which the wire's bytes make on a little-endian machine.
  EXPECT_EQ(WithoutTimes(dump),
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
  EXPECT_THAT(dump, HasSubstr("-000000 -----\n")) << "a receipt has no fraction";
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
}

TEST_F(TemplateDump, NeedsAPlace) {
  Start("<TemplateDumpIntervalSeconds>1</TemplateDumpIntervalSeconds>");
  WriteFile(DumpPath(), "old");
  Send(V5Packet().Build());
  EXPECT_EQ(ReadFile(DumpPath()), "") << "of an empty store, an empty file";
  host_.WorkDirectory(host_.Directory() + "/none");
  Send(V9(Learn({})), {.port = 1});
  EXPECT_THAT(host_.Take("Log"),
              ElementsAre(MatchesRegex("Log 4 Dump Template DB Error No such file or directory "
                                       "f=/.*/none/TemplateDump-1.txt")));
  host_.WorkDirectory(std::nullopt);
  Send(V9(Learn({})), {.port = 2});
  EXPECT_THAT(host_.Take("Log"), IsEmpty());
}

}  // namespace
}  // namespace flow::test
