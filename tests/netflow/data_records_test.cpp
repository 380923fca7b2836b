// Data records: which are metered and how, and what ends a data set.

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

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
  host_.Policy(kWholeFlows);
  host_.Attach(meter_);
  Send(V9(Learn(fields), Data(record)));
  EXPECT_THAT(Flows(), ElementsAre(flow("from 1699999997 0, to 1699999999 500")));
  Send(IpfixMessage().ExportTime(5000).Add(Data(record)).Build());
  EXPECT_THAT(Flows(), ElementsAre(flow("from 5002 0, to 5004 500")));
}

constexpr char kNoNat[] = "<UsePostNATAddresses>false</UsePostNATAddresses>";
constexpr char kZero[] = "<MeterZeroFlows>true</MeterZeroFlows>";
constexpr char kOn[] = "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>";
constexpr char kNoOut[] = "<IgnoreOutCounts>true</IgnoreOutCounts>";

TEST_F(DataRecords, Rules) {
  const Field s = {8, 4};
  const Field d = {12, 4};
  const Field b = {1, 4};
  const Wire six = Wire().Ip6("2001:db8::1").Ip6("2001:db8::2");
  const auto v6 = [&](std::initializer_list<std::uint32_t> more) {
    return Wire(six).Raw(Numbers(more).Get());
  };
  const std::string flow = "0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 9 bytes 0 packets";
  const std::string nat = "0 0.0.0.3:0 > 0.0.0.4:0 if 0 > 0, 9 bytes 0 packets";
  const std::string dns = "0 0.0.0.1:65535 > 0.0.0.2:53 if 0 > 0, 9 bytes 0 packets";
  const std::string flow6 = "0 2001:db8::1:0 > 2001:db8::2:0 if 0 > 0, 9 bytes 0 packets";
  // clang-format off
  const struct {
    const char* name;
    Fields fields;
    Wire record;
    Texts flows;
    const char* settings = "";
  } cases[] = {
      {"BothAddresses", {s, d, b}, Numbers({1, 2, 9}), {flow}},
      {"NoDestination", {s, b}, Numbers({1, 9}), {}},
      {"NoSource", {d, b}, Numbers({2, 9}), {}},
      {"AddressesOfNoLength", {{8, 0}, {12, 0}, b}, Numbers({9}),
       {"0 0.0.0.0:0 > 0.0.0.0:0 if 0 > 0, 9 bytes 0 packets"}},
      {"Ipv6", {{27, 16}, {28, 16}, b}, v6({9}), {flow6}},
      {"Ipv6OfOtherLength", {{27, 15}, {210, 1}, {28, 16}, b}, v6({9}), {}},
      {"Ipv4BeatsIpv6", {{27, 16}, {28, 16}, s, d, b}, v6({1, 2, 9}), {flow}},
      {"VersionAlone", {{60, 4}, s, d, b}, Numbers({6, 1, 2, 9}),
       {"0 :::0 > :::0 if 0 > 0, 9 bytes 0 packets"}},
      {"UnknownVersion", {{60, 4}, s, d, b}, Numbers({5, 1, 2, 9}), {"no key, 9 bytes 0 packets"}},
      {"PostNat", {s, d, {225, 4}, {226, 4}, b}, Numbers({1, 2, 3, 4, 9}), {nat}},
      {"PostNatOff", {s, d, {225, 4}, {226, 4}, b}, Numbers({1, 2, 3, 4, 9}), {flow}, kNoNat},
      {"PostNatIsNoPresence", {{225, 4}, {226, 4}, b}, Numbers({3, 4, 9}), {}},
      {"PostNatBeforeAddresses", {{225, 4}, {226, 4}, s, d, b}, Numbers({3, 4, 1, 2, 9}), {flow}},
      {"NoSourcePort", {s, d, {11, 4}, b}, Numbers({1, 2, 53, 9}), {dns}},
      {"SourcePortZero", {s, d, {7, 4}, {11, 4}, b}, Numbers({1, 2, 0, 53, 9}), {dns}},
      {"DestinationPortZero", {s, d, {11, 4}, b}, Numbers({1, 2, 0, 9}), {flow}},
      {"ZeroBytes", {s, d, {2, 4}, b}, Numbers({1, 2, 3, 0}), {}},
      {"ZeroFlow", {s, d, {2, 4}, b}, Numbers({1, 2, 3, 0}),
       {"0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 1 bytes 1 packets"}, kZero},
      {"ZeroFlowWithBytes", {s, d, {2, 4}, b}, Numbers({1, 2, 0, 9}), {flow}, kZero},
      {"LowBytesZero", {s, d, {1, 8}}, Numbers({1, 2, 5, 0}), {}},
      {"ReducedSize", {s, d, {1, 3}, {210, 1}}, Numbers({1, 2, 0x900}), {}},
      {"LastOfAKindCounts", {s, d, b, {85, 4}}, Numbers({1, 2, 8, 9}), {flow}},
      {"TimesExchanged", {s, d, b, {22, 4}, {21, 4}}, Numbers({1, 2, 9, 12500, 7000}),
       {flow + ", for 5500"}},
      {"Seconds", {s, d, b, {150, 4}, {151, 4}}, Numbers({1, 2, 9, 7, 12}), {flow + ", for 5000"}},
      {"EpochSeconds", {s, d, b, {150, 4}, {151, 4}}, Numbers({1, 2, 9, 1700000000, 1700000002}),
       {flow + ", for 2000"}},
      {"SecondsWrap", {s, d, b, {150, 4}, {151, 4}}, Numbers({1, 2, 9, 4294967, 4294968}),
       {flow + ", for 4294966296"}},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = MeterRecords(row.settings, row.fields, Data(row.record));
    EXPECT_THAT(outcome.flows, ElementsAreArray(row.flows));
    EXPECT_EQ(outcome.error, SetError::kNone);
  }
}

TEST_F(DataRecords, ReverseCounters) {
  const std::string there = "0 0.0.0.1:51000 > 0.0.0.2:80 if 3 > 7, ";
  const std::string back = "0 0.0.0.2:80 > 0.0.0.1:51000 if 7 > 3, ";
  // clang-format off
  const struct {
    const char* name;
    Fields counters;
    Wire record;
    Texts flows;
    const char* settings = "";
  } cases[] = {
      {"Both", {{1, 8}, {2, 8}, {32769, 8}, {32770, 8}}, Numbers({0, 1000, 0, 10, 0, 500, 0, 5}),
       {there + "1000 bytes 10 packets", back + "500 bytes 5 packets"}},
      {"ReverseAlone", {{32769, 8}, {32770, 8}}, Numbers({0, 500, 0, 5}),
       {back + "500 bytes 5 packets"}},
      {"LowBytesZero", {{1, 4}, {32769, 8}}, Numbers({7, 1, 0}), {there + "7 bytes 0 packets"}},
      {"OutCounts", {{1, 4}, {23, 4}, {24, 4}}, Numbers({7, 9, 2}),
       {there + "7 bytes 0 packets", back + "9 bytes 2 packets"}},
      {"OutCountsIgnored", {{1, 4}, {23, 4}, {24, 4}}, Numbers({7, 9, 2}),
       {there + "7 bytes 0 packets"}, kNoOut},
      {"EnterpriseCountsNotIgnored", {{1, 4}, {32769, 4}}, Numbers({7, 9}),
       {there + "7 bytes 0 packets", back + "9 bytes 0 packets"}, kNoOut},
      {"LargerDelta", {{1, 4}, {232, 4}, {23, 8}, {231, 4}}, Numbers({70, 7, 1, 8, 9}),
       {there + "70 bytes 0 packets", back + "9 bytes 0 packets"}},
      {"SmallerDelta", {{1, 4}, {232, 4}, {23, 8}, {231, 4}}, Numbers({6, 7, 1, 8, 3}),
       {there + "7 bytes 0 packets", back + "8 bytes 0 packets"}},
      {"ListedExporter", {{1, 4}, {32769, 4}}, Numbers({7, 9}), {there + "7 bytes 0 packets"},
       "<IgnoreV9EgressFromDevices>10.9.9.9,192.0.2.1</IgnoreV9EgressFromDevices>"},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    Fields fields = {{8, 4}, {12, 4}, {7, 4}, {11, 4}, {10, 4}, {14, 4}};
    fields.insert(fields.end(), row.counters.begin(), row.counters.end());
    const Wire record = Numbers({1, 2, 51000, 80, 3, 7}).Raw(row.record.Get());
    EXPECT_THAT(MeterRecords(row.settings, fields, Data(record)).flows,
                ElementsAreArray(row.flows));
  }
}

// All that tells source from destination changes places in the reverse flow.
TEST_F(DataRecords, ReverseFlowIsTheOtherSide) {
  Wire record = Wire().Ip6("2001:db8::1").Ip6("2001:db8:1::2").U16(51000).U16(443).U32(3).U32(7);
  record.U32(64501).U32(64502).U8(48).U8(127);
  record.Mac("02:00:00:00:00:01").Mac("02:00:00:00:00:02").U32(99);
  host_.Policy(kWholeFlows);
  host_.Attach(meter_);
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
  EXPECT_THAT(Flows(),
              ElementsAre("0 2001:db8:1::2:443 > 2001:db8::1:51000 if 7 > 3, 99 bytes 0 packets, "
                          "as 64502, as 64501, net 2001:db8:1::2/127, net 2001:db8::/48, "
                          "bgp 00.00.00.00, hop 00.00.00.00, from 1699999990 0, to 1699999990 0, "
                          "mac 02:00:00:00:00:02, mac 02:00:00:00:00:01"));
}

// A record far from the exporter's uptime is corrupt once FIRST_SWITCHED has been seen in the
// datagram, be it in another template's record.
TEST_F(DataRecords, FirstSwitchedLastsForTheDatagram) {
  Start("<CheckPacketsForCorruption>true</CheckPacketsForCorruption>");
  Send(V9(Learn({{8, 4}, {12, 4}, {150, 4}, {151, 4}, {2, 4}, {1, 4}}), Learn({{22, 4}}, 257)));
  const Set far = Data(Numbers({1, 2, 2000000, 2000001, 1, 100}));
  Send(V9(far));
  EXPECT_THAT(Flows(), SizeIs(1));
  Send(V9(Data(Numbers({10000}), 257), far));
  EXPECT_THAT(host_.Take(), ElementsAre("Log 5 Ignoring corrupt Netflow record byte=100 pkt=1 "
                                        "sysuptime_from=2000000000 to=2000001000"));
  Send(V9(far));
  EXPECT_THAT(Flows(), SizeIs(1));
}

// What ends a data set: the records before it are metered.
TEST_F(DataRecords, Abandoned) {
  const Wire good = FlowRecord();
  const Wire numbers = Numbers({1, 2, 3});
  const Fields variable = {{8, 4}, {12, 4}, {1, 4}, {999, kVariableLength}};
  constexpr char kFixed[] = "data not matching template, overflows";
  constexpr char kVariable[] =
      "data not matching template, var string overflows fAllowVariableStrings=true";
  // clang-format off
  const struct {
    const char* name;
    Fields fields;
    Set data;
    std::size_t records;
    const char* error;
    const char* settings = kOn;
  } cases[] = {
      {"Exact", kFlowFields, Data(good).Record(good), 2, ""},
      {"Padding", kFlowFields, Data(good).Pad(2), 1, kFixed},
      {"LastRecordCut", kFlowFields, Data(good).Raw(numbers), 1, kFixed},
      {"UnknownTemplate", kFlowFields, Data(good, 300), 0, "unknown template - but router known "},
      {"FieldLongerThanAnySet", {{8, 4}, {12, 4}, {1, 4}, {999, 65534}}, Data(good), 0, kFixed},
      {"RecordLongerThanAnySet", {{8, 40000}, {12, 40000}}, Data(good), 0, kFixed},
      {"Variable", variable, Data(Wire(numbers).Variable("text")), 1, ""},
      {"VariableEmpty", variable, Data(Wire(numbers).Variable("")), 1, ""},
      {"VariableNoLengthByte", variable, Data(numbers), 0, kVariable},
      {"VariableOneByteShort", variable, Data(Wire(numbers).U8(5).Text("text")), 0, kVariable},
      // The long form is not read: 255 is a length.
      {"VariableLong", variable, Data(Wire(numbers).LongVariable(std::string(253, 'x'))), 1, ""},
      {"VariableOff", variable, Data(Wire(numbers).Variable("text")), 0, kFixed, ""},
      {"FixedBehindVariable", {{999, kVariableLength}, {8, 4}}, Data(Wire().Variable("textxxx")).Pad(3),
       0, kFixed},
      // A template of no length describes one record, whatever the set holds.
      {"NoFields", {}, Data(good), 0, ""},
      {"NoLength", {{8, 0}, {12, 0}, {136, 0}}, Data(good), 1, "", kZero},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = MeterRecords(row.settings, row.fields, row.data);
    EXPECT_THAT(outcome.flows, SizeIs(row.records));
    EXPECT_STREQ(SetErrorText(outcome.error), row.error);
  }
}

// Names that options data give to interfaces and applications.
TEST_F(DataRecords, Names) {
  const auto nbar = [](const std::string& selector, const std::string& tag, const char* texts) {
    Texts calls;
    for (const std::string& key :
         {"1:" + selector, "3:" + selector, "6:" + selector, "13:" + selector, tag}) {
      calls.push_back("SetKeyAttributes COUNTERID_NBAR " + key + " " + texts);
    }
    return calls;
  };
  // clang-format off
  const struct {
    const char* name;
    Fields fields;
    Wire record;
    Texts calls;
  } cases[] = {
      {"Interface", {{10, 4}, {82, 8}, {83, 8}}, Numbers({3}).Text("Gi0/1", 8).Text("uplink", 8),
       {"SetKeyAttributes COUNTERID_FLOWINTF C0.00.02.01_00000003 uplink uplink"}},
      {"InterfaceNoDescription", {{82, 4}, {10, 4}}, Wire().Text("Gi0", 4).U32(0x12345678),
       {R"(SetKeyAttributes COUNTERID_FLOWINTF C0.00.02.01_12345678 "" "")"}},
      {"InterfaceNoName", {{10, 4}, {82, 4}, {83, 4}}, Numbers({3, 0}).Text("abcd"), {}},
      {"Application", {{95, 4}, {96, 4}, {94, 4}}, Numbers({0x0D000150}).Text("httpwebs"),
       nbar("336", "13:336", "http webs")},
      {"ApplicationLongId", {{95, 8}, {96, 1}}, Numbers({1, 2}).Text("x"),
       nbar("4294967298", "100000002", R"(x "")")},
      {"ApplicationLargestId", {{95, 8}, {96, 1}}, Numbers({0xFFFFFFFF, 0xFFFFFFFF}).Text("x"),
       nbar("-1", "ffffffffffffffff", R"(x "")")},
      {"ApplicationNoName", {{95, 4}, {94, 4}}, Numbers({0x0D000150}).Text("webs"), {}},
      {"ApplicationNoId", {{96, 4}}, Wire().Text("http"), nbar("0", R"("")", R"(http "")")},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(MeterRecords("", row.fields, Data(row.record)).lines, ElementsAreArray(row.calls));
  }
}

// The selector outlives its record, be it one that was abandoned; the texts do not.
TEST_F(DataRecords, SelectorOutlivesRecord) {
  Start();
  Send(V9(Learn({{95, 4}, {96, 4}, {210, 4}}), Data(Numbers({0x0D000150}).Text("http"))));
  EXPECT_THAT(host_.Take("SetKey"), IsEmpty());
  Send(V9(Learn({{96, 3}}), Data(Wire().Text("ssh")).Record(Wire().Zeros(3))));
  const Texts calls = host_.Take("SetKey");
  ASSERT_THAT(calls, SizeIs(5));
  EXPECT_EQ(calls[3], R"(SetKeyAttributes COUNTERID_NBAR 13:336 ssh "")");
  EXPECT_EQ(calls[4], R"(SetKeyAttributes COUNTERID_NBAR "" ssh "")");
}

}  // namespace
}  // namespace flow::test
