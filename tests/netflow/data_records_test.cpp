// SPDX-License-Identifier: Apache-2.0
// Data records: which are metered and how, and what ends a data set.

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::ElementsAre;

class DataRecords : public MeterTest {};

// Every field of a flow at once, in both versions of the format. IPFIX has one clock for both.
TEST_F(DataRecords, WholeRecord) {
  const Fields fields = {{95, 4}, {234, 4}, {346, 4}, {56701, 32}, {56702, 64}, {8, 4},  {12, 4},
                         {7, 2},  {11, 2},  {4, 1},   {6, 1},      {10, 4},     {14, 4}, {15, 4},
                         {18, 4}, {16, 4},  {17, 4},  {9, 1},      {13, 1},     {56, 6}, {57, 6},
                         {22, 4}, {21, 4},  {1, 8},   {2, 8}};
  Wire record = Numbers({0x0D000150, 0xFFFFFFFF, 25461});
  record.Text("user", 32).Text("app", 64).Ip("10.1.2.3").Ip("198.51.100.4");
  record.U16(51000).U16(443).U8(6).U8(0x12).U32(0x10003).U32(0x10007);
  record.Ip("10.0.0.254").Ip("203.0.113.1").U32(4200000000).U32(64500).U8(20).U8(24);
  record.Mac("00:1B:21:3A:4F:5C").Mac("02:00:00:00:00:09").U32(7000).U32(9500);
  record.U64(0x100000000 + 123456).U64(0x200000000 + 100);
  const auto flow = [](const char* times) {
    return "6 10.1.2.3:51000 > 198.51.100.4:443 if 65539 > 65543, 123456 bytes 100 packets, "
           "as -94967296, as 64500, net 10.1.0.0/20, net 198.51.100.0/24, bgp CB.00.71.01, "
           "hop 0A.00.00.FE, in VRF:-1, tag 13:336, " +
           std::string(times) +
           ", closed, app app 0, app app 5, app app 3, user user 0, user user 5, user user 3, "
           "mac 00:1B:21:3A:4F:5C, mac 02:00:00:00:00:09";
  };
  host_.Policy("<MeterNetflowSources>false</MeterNetflowSources>" + kWholeFlows).Attach(meter_);
  host_.Forget();
  Send(V9(Learn(fields), Data(record)));
  Send(IpfixMessage().ExportTime(5000).Add(Data(record)).Build());
  EXPECT_THAT(Said(), ElementsAre(flow("from 1699999997 0, to 1699999999 500"),
                                  flow("from 5002 0, to 5004 500")));
}

// All that tells source from destination changes places in the reverse flow.
TEST_F(DataRecords, ReverseFlowIsTheOtherSide) {
  Wire record = Wire().Ip6("2001:db8::1").Ip6("2001:db8:1::2").U16(51000).U16(443).U32(3).U32(7);
  record.U32(64501).U32(64502).U8(48).U8(127);
  record.Mac("02:00:00:00:00:01").Mac("02:00:00:00:00:02").U32(99);
  host_.Policy("<MeterNetflowSources>false</MeterNetflowSources>" + kWholeFlows).Attach(meter_);
  host_.Forget();
  Send(V9(Learn({{27, 16},
                 {28, 16},
                 {7, 2},
                 {11, 2},
                 {10, 4},
                 {14, 4},
                 {16, 4},
                 {17, 4},
                 {29, 1},
                 {30, 1},
                 {56, 6},
                 {57, 6},
                 {32769, 4}}),
          Data(record)));
  EXPECT_THAT(Said(),
              ElementsAre("0 2001:db8:1::2:443 > 2001:db8::1:51000 if 7 > 3, 99 bytes 0 packets, "
                          "as 64502, as 64501, net 2001:db8:1::2/127, net 2001:db8::/48, "
                          "bgp 00.00.00.00, hop 00.00.00.00, from 1699999990 0, to 1699999990 0, "
                          "mac 02:00:00:00:00:02, mac 02:00:00:00:00:01"));
}

// A record that says whether it is ingress is looked for among others by its key, which then need
// not be made again for its flow.
TEST_F(DataRecords, DirectionChangesNoCall) {
  constexpr char kTwoWays[] = "<MatchBiDirectionalFlows>true</MatchBiDirectionalFlows>";
  constexpr char kOneWay[] = "<MatchBiDirectionalFlows>false</MatchBiDirectionalFlows>";
  const auto calls = [](const char* settings, const Field& last, std::uint8_t ip_version,
                        std::uint8_t direction) {
    RecordingHost host;
    host.Policy(settings);
    const auto meter = host.Attach<CPINetflowMeter>();
    Fields fields = kFlowFields;
    fields.insert(fields.end(), {{32769, 4}, {60, 1}, last});
    host.Count(meter, V9(Learn(fields)).Build());
    host.Forget();
    const Wire record = Wire(FlowRecord()).U32(77).U8(ip_version).U8(direction);
    host.Count(meter, V9(Data(record)).Build());
    return host.Take("COUNTERID_");
  };
  for (const char* const settings : {kTwoWays, kOneWay}) {
    for (const std::uint8_t ip_version : Bytes{4, 6, 5}) {
      for (const std::uint8_t direction : Bytes{0, 1}) {
        const Texts said = calls(settings, {61, 1}, ip_version, direction);
        EXPECT_GT(said.size(), 20U);
        EXPECT_EQ(said, calls(settings, {210, 1}, ip_version, direction));
      }
    }
  }
}

constexpr char kNoNat[] = "<UsePostNATAddresses>false</UsePostNATAddresses>";
constexpr char kZero[] = "<MeterZeroFlows>true</MeterZeroFlows>";
constexpr char kNoOut[] = "<IgnoreOutCounts>true</IgnoreOutCounts>";
constexpr char kVariable[] = "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>";
constexpr char kNoEgress[] = "<IgnoreAllEgress>true</IgnoreAllEgress>";
constexpr char kMerged[] = "<MergeMultipleSources>true</MergeMultipleSources>";
constexpr char kListed[] =
    "<IgnoreV9EgressFromDevices>1.1.1.1,192.0.2.1</IgnoreV9EgressFromDevices>";

struct Case {
  const char* name;
  Fields fields;
  Set data;
  Texts said;
  const char* settings = "";
  SetError error = SetError::kNone;
};

// Each row is a template and one set of its data.
void Check(const std::vector<Case>& cases) {
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy(row.settings + kFlowsOnly);
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    host.Count(meter, V9(Learn(row.fields), row.data).WithCount(2).Build());
    EXPECT_EQ(Digest(host.Take()), row.said);
    EXPECT_EQ(meter->LastSetError(), row.error);
  }
}

Set Data6(std::initializer_list<std::uint32_t> more) {
  return Data(Wire().Ip6("2001:db8::1").Ip6("2001:db8::2").Raw(Numbers(more).Get()));
}

const Field kSrc = {8, 4};
const Field kDst = {12, 4};
const Field kBytes = {1, 4};
constexpr char kNine[] = "0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 9 bytes 0 packets";

// clang-format off
TEST_F(DataRecords, Presence) {
  const std::string dns = "0 0.0.0.1:65535 > 0.0.0.2:53 if 0 > 0, 9 bytes 0 packets";
  const std::string nat = "0 0.0.0.3:0 > 0.0.0.4:0 if 0 > 0, 9 bytes 0 packets";
  Check({
      {"BothAddresses", {kSrc, kDst, kBytes}, Data(Numbers({1, 2, 9})), {kNine}},
      {"NoDestination", {kSrc, kBytes}, Data(Numbers({1, 9})), {}},
      {"NoSource", {kDst, kBytes}, Data(Numbers({2, 9})), {}},
      {"AddressesOfNoLength", {{8, 0}, {12, 0}, kBytes}, Data(Numbers({9})),
       {"0 0.0.0.0:0 > 0.0.0.0:0 if 0 > 0, 9 bytes 0 packets"}},
      {"Ipv6", {{27, 16}, {28, 16}, kBytes}, Data6({9}),
       {"0 2001:db8::1:0 > 2001:db8::2:0 if 0 > 0, 9 bytes 0 packets"}},
      {"Ipv6OfOtherLength", {{27, 15}, {210, 1}, {28, 16}, kBytes}, Data6({9}), {}},
      {"Ipv4BeatsIpv6", {{27, 16}, {28, 16}, kSrc, kDst, kBytes}, Data6({1, 2, 9}), {kNine}},
      {"VersionAlone", {{60, 4}, kSrc, kDst, kBytes}, Data(Numbers({6, 1, 2, 9})),
       {"0 :::0 > :::0 if 0 > 0, 9 bytes 0 packets"}},
      {"UnknownVersion", {{60, 4}, kSrc, kDst, kBytes}, Data(Numbers({5, 1, 2, 9})),
       {"no key, 9 bytes 0 packets"}},
      {"PostNat", {kSrc, kDst, {225, 4}, {226, 4}, kBytes}, Data(Numbers({1, 2, 3, 4, 9})), {nat}},
      {"PostNatOff", {kSrc, kDst, {225, 4}, {226, 4}, kBytes}, Data(Numbers({1, 2, 3, 4, 9})),
       {kNine}, kNoNat},
      {"PostNatIsNoPresence", {{225, 4}, {226, 4}, kBytes}, Data(Numbers({3, 4, 9})), {}},
      {"PostNatFirst", {{225, 4}, {226, 4}, kSrc, kDst, kBytes}, Data(Numbers({3, 4, 1, 2, 9})),
       {kNine}},
      {"NoSourcePort", {kSrc, kDst, {11, 4}, kBytes}, Data(Numbers({1, 2, 53, 9})), {dns}},
      {"SourcePortZero", {kSrc, kDst, {7, 4}, {11, 4}, kBytes}, Data(Numbers({1, 2, 0, 53, 9})), {dns}},
      {"NoPorts", {kSrc, kDst, {7, 4}, {11, 4}, kBytes}, Data(Numbers({1, 2, 0, 0, 9})), {kNine}},
      {"TimesExchanged", {kSrc, kDst, kBytes, {22, 4}, {21, 4}}, Data(Numbers({1, 2, 9, 12500, 7000})),
       {std::string(kNine) + ", for 5500"}},
      {"LastSwitchedOfOtherId", {kSrc, kDst, kBytes, {22, 4}, {323, 4}}, Data(Numbers({1, 2, 9, 7000, 12500})),
       {std::string(kNine) + ", for 5500"}},
      {"Milliseconds", {kSrc, kDst, kBytes, {152, 8}, {153, 8}}, Data(Numbers({1, 2, 9, 0, 7000, 0, 12999})),
       {std::string(kNine) + ", for 5"}},
      {"SecondsWrap", {kSrc, kDst, kBytes, {150, 4}, {151, 4}},
       Data(Numbers({1, 2, 9, 4294967, 4294968})), {std::string(kNine) + ", for 4294966296"}},
  });
}

TEST_F(DataRecords, Counters) {
  const std::string there = "0 0.0.0.1:51000 > 0.0.0.2:80 if 3 > 7, ";
  const std::string back = "0 0.0.0.2:80 > 0.0.0.1:51000 if 7 > 3, ";
  const auto fields = [](const Fields& counters) {
    Fields all = {kSrc, kDst, {7, 4}, {11, 4}, {10, 4}, {14, 4}};
    all.insert(all.end(), counters.begin(), counters.end());
    return all;
  };
  const auto data = [](std::initializer_list<std::uint32_t> counters) {
    return Data(Numbers({1, 2, 51000, 80, 3, 7}).Raw(Numbers(counters).Get()));
  };
  Check({
      {"ZeroBytes", fields({{2, 4}, {1, 4}}), data({3, 0}), {}},
      {"ZeroFlow", fields({{2, 4}, {1, 4}}), data({3, 0}), {there + "1 bytes 1 packets"}, kZero},
      {"LowBytesZero", fields({{1, 8}}), data({5, 0}), {}},
      {"ReducedSize", fields({{1, 3}, {210, 1}}), data({0x900}), {}},
      {"BothWays", fields({{1, 8}, {2, 8}, {32769, 8}, {32770, 8}}), data({0, 1000, 0, 10, 0, 500, 0, 5}),
       {there + "1000 bytes 10 packets", back + "500 bytes 5 packets"}},
      {"ReverseAlone", fields({{32769, 8}, {32770, 8}}), data({0, 500, 0, 5}),
       {back + "500 bytes 5 packets"}},
      {"ReverseLowZero", fields({{1, 4}, {32769, 8}}), data({7, 1, 0}), {there + "7 bytes 0 packets"}},
      {"OutCounts", fields({{1, 4}, {23, 4}, {24, 4}}), data({7, 9, 2}),
       {there + "7 bytes 0 packets", back + "9 bytes 2 packets"}},
      {"OutCountsIgnored", fields({{1, 4}, {23, 4}, {24, 4}}), data({7, 9, 2}),
       {there + "7 bytes 0 packets"}, kNoOut},
      {"EnterpriseNotIgnored", fields({{1, 4}, {32769, 4}}), data({7, 9}),
       {there + "7 bytes 0 packets", back + "9 bytes 0 packets"}, kNoOut},
      {"Permanent", fields({{85, 4}, {86, 4}}), data({7, 2}), {there + "7 bytes 2 packets"}},
      {"LargerDeltas", fields({{1, 4}, {232, 4}, {23, 8}, {231, 4}}), data({70, 7, 1, 8, 9}),
       {there + "70 bytes 0 packets", back + "9 bytes 0 packets"}},
      {"ListedExporter", fields({{1, 4}, {32769, 4}}), data({7, 9}), {there + "7 bytes 0 packets"},
       kListed},
  });
}

TEST_F(DataRecords, DuplicateEgress) {
  const Fields fields = {kSrc, kDst, {10, 4}, {14, 4}, kBytes, {61, 4}};
  const auto record = [](std::uint32_t direction, std::uint32_t source = 1, std::uint32_t in = 3,
                         std::uint32_t out = 7) {
    return Numbers({source, 2, in, out, 9, direction});
  };
  const std::string flow = "0 0.0.0.1:0 > 0.0.0.2:0 if 3 > 7, 9 bytes 0 packets";
  const std::string other = "0 0.0.0.4:0 > 0.0.0.2:0 if 3 > 7, 9 bytes 0 packets";
  const std::string input4 = "0 0.0.0.1:0 > 0.0.0.2:0 if 4 > 7, 9 bytes 0 packets";
  Check({
      {"IngressThenEgress", fields, Data(record(0)).Record(record(1)).Record(record(1)), {flow}},
      {"EgressThenIngress", fields, Data(record(1)).Record(record(0)), {flow, flow}},
      {"OtherFlow", fields, Data(record(0)).Record(record(1, 4)), {flow, other}},
      {"OtherHalf", fields, Data(record(0)).Record(Numbers({2, 1, 7, 3, 9, 1})), {flow}},
      {"DirectionTwo", fields, Data(record(0)).Record(record(2)), {flow, flow}},
      {"AllEgress", fields, Data(record(1)).Record(record(0)).Record(record(1, 4)), {flow}, kNoEgress},
      // Of the key the hash takes 63 characters, which end behind the first interface.
      {"OtherInput", fields, Data(record(0)).Record(record(1, 1, 4)), {flow, input4}},
      {"OtherOutput", fields, Data(record(0)).Record(record(1, 1, 3, 8)), {flow}},
      {"OtherInputMerged", fields, Data(record(0)).Record(record(1, 1, 4)),
       {"0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 9 bytes 0 packets"}, kMerged},
  });
}

// What ends a data set. The records before it are metered.
TEST_F(DataRecords, Abandoned) {
  using enum SetError;
  const Wire nine = Numbers({1, 2, 9});
  const Fields fixed = {kSrc, kDst, kBytes};
  const Fields variable = {kSrc, kDst, kBytes, {999, kVariableLength}};
  Check({
      {"Exact", fixed, Data(nine).Record(nine), {kNine, kNine}},
      {"Padding", fixed, Data(nine).Pad(2), {kNine}, "", kFieldOverflow},
      {"LastRecordCut", fixed, Data(nine).Raw(Numbers({1, 2})), {kNine}, "", kFieldOverflow},
      {"UnknownTemplate", fixed, Data(nine, 300), {}, "", kUnknownTemplate},
      {"FieldLongerThanAnySet", {kSrc, kDst, kBytes, {999, 65534}}, Data(nine), {}, "", kFieldOverflow},
      {"Variable", variable, Data(Wire(nine).Variable("text")), {kNine}, kVariable},
      {"VariableNoLengthByte", variable, Data(nine), {}, kVariable, kVariableOverflow},
      {"VariableOneByteShort", variable, Data(Wire(nine).U8(5).Text("text")), {}, kVariable,
       kVariableOverflow},
      // The long form is not read: 255 is a length.
      {"VariableLong", variable, Data(Wire(nine).LongVariable(std::string(253, 'x'))), {kNine}, kVariable},
      {"VariableOff", variable, Data(Wire(nine).Variable("text")), {}, "", kFieldOverflow},
      {"FixedBehindVariable", {{999, kVariableLength}, kSrc}, Data(Wire().Variable("text")).Pad(3), {},
       kVariable, kFieldOverflow},
      // A template of no length describes one record, whatever the set holds.
      {"NoLength", {{8, 0}, {12, 0}, {136, 0}}, Data(nine),
       {"0 0.0.0.0:0 > 0.0.0.0:0 if 0 > 0, 1 bytes 1 packets, closed"}, kZero},
  });
}

// Names that options data give to interfaces and applications.
TEST_F(DataRecords, Names) {
  const auto nbar = [](const std::string& selector, const std::string& tag, const char* texts) {
    Texts calls;
    for (const auto& key : {"1:" + selector, "3:" + selector, "6:" + selector, "13:" + selector, tag}) {
      calls.push_back("SetKeyAttributes COUNTERID_NBAR " + key + " " + texts);
    }
    return calls;
  };
  Check({
      {"Interface", {{10, 4}, {82, 8}, {83, 8}}, Data(Numbers({3}).Text("Gi0/1", 8).Text("uplink", 8)),
       {"SetKeyAttributes COUNTERID_FLOWINTF C0.00.02.01_00000003 uplink uplink"}},
      {"InterfaceNoName", {{10, 4}, {82, 4}, {83, 4}}, Data(Numbers({3, 0}).Text("abcd")), {}},
      {"Application", {{95, 4}, {96, 4}, {94, 4}}, Data(Numbers({0x0D000150}).Text("httpwebs")),
       nbar("336", "13:336", "http webs")},
      {"ApplicationLargestId", {{95, 8}, {96, 1}}, Data(Numbers({0xFFFFFFFF, 0xFFFFFFFF}).Text("x")),
       nbar("-1", "ffffffffffffffff", R"(x "")")},
      {"ApplicationNoName", {{95, 4}, {94, 4}}, Data(Numbers({0x0D000150}).Text("webs")), {}},
      {"ApplicationNoId", {{96, 4}}, Data(Wire().Text("http")), nbar("0", R"("")", R"(http "")")},
  });
}
// clang-format on

// The selector outlives its record, be it one that was abandoned; the texts do not.
TEST_F(DataRecords, SelectorOutlivesRecord) {
  Start();
  Send(V9(Learn({{95, 4}, {96, 4}, {210, 4}}), Data(Numbers({0x0D000150}).Text("http"))));
  Send(V9(Learn({{96, 3}}), Data(Wire().Text("ssh")).Record(Wire().Zeros(3))));
  const Texts calls = Said();
  ASSERT_EQ(calls.size(), 5U);
  EXPECT_EQ(calls[3], R"(SetKeyAttributes COUNTERID_NBAR 13:336 ssh "")");
  EXPECT_EQ(calls[4], R"(SetKeyAttributes COUNTERID_NBAR "" ssh "")");
}

// A record far from the exporter's uptime is corrupt once FIRST_SWITCHED has been seen in the
// datagram, be it in another template's record.
TEST_F(DataRecords, FirstSwitchedLastsForTheDatagram) {
  Start("<CheckPacketsForCorruption>true</CheckPacketsForCorruption>");
  Send(V9(Learn({kSrc, kDst, {150, 4}, {151, 4}, {2, 4}, kBytes}), Learn({{22, 4}}, 257)));
  const Set far = Data(Numbers({1, 2, 2000000, 2000001, 1, 100}));
  for (int i = 0; i < 2; ++i) {
    Send(V9(far));
    EXPECT_THAT(Said(), ElementsAre(testing::EndsWith("100 bytes 1 packets, for 1000")));
    Send(V9(Data(Numbers({10000}), 257), far));
    EXPECT_THAT(Said(), ElementsAre("Log 5 Ignoring corrupt Netflow record byte=100 pkt=1 "
                                    "sysuptime_from=2000000000 to=2000001000"));
  }
}

}  // namespace
}  // namespace flow::test
