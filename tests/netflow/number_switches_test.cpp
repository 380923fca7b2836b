// SPDX-License-Identifier: Apache-2.0
// The switches that mend numbers: what each changes, and that without it nothing does.

#include "tests/netflow/meter_test.h"

namespace flow::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string On(std::string_view key) {
  return "<" + std::string(key) + ">true</" + std::string(key) + ">";
}

// The packet of another source id.
Bytes FromDomain(std::uint8_t domain, const V9Packet& packet) {
  Bytes bytes = packet.Build();
  bytes[19] = domain;
  return bytes;
}

class NumberSwitches : public MeterTest {
 protected:
  Texts With(const std::string& settings, const std::vector<Bytes>& datagrams) {
    meter_ = {};
    host_.AnyValue().Policy(settings + kFlowsOnly).Attach(meter_);
    host_.Forget();
    for (const Bytes& datagram : datagrams) Send(datagram);
    return Said();
  }
};

// A record with both counts in 8 bytes, and one that tells the rate.
TEST_F(NumberSwitches, Count64Bit) {
  Fields fields = kFlowFields;
  fields[7].length = fields[8].length = 8;
  const auto record = [](std::uint64_t packets, std::uint64_t bytes) {
    return Wire()
        .Ip("10.0.0.1")
        .Ip("10.0.0.2")
        .U16(1)
        .U16(2)
        .U8(6)
        .U32(3)
        .U32(7)
        .U64(packets)
        .U64(bytes);
  };
  const auto data = [&](std::uint64_t packets, std::uint64_t bytes, std::uint32_t rate) {
    return std::vector<Bytes>{V9(Learn({{34, 4}}, 300), Data(Wire().U32(rate), 300)).Build(),
                              V9(Learn(fields), Data(record(packets, bytes))).Build()};
  };
  const struct {
    const char* name;
    std::vector<Bytes> datagrams;
    const char* off;
    const char* on;
  } cases[] = {
      {"MoreThan4GiB", data(0x100000002, 5'000'000'000, 0), "705032704 bytes 2 packets",
       "5000000000 bytes 4294967298 packets"},
      {"Exactly4GiB", data(3, 0x100000000, 0), nullptr, "4294967296 bytes 3 packets"},
      {"LargeProduct", data(10, 3'000'000, 16000), "755359744 bytes 160000 packets",
       "48000000000 bytes 160000 packets"},
      {"LargeRate", data(10, 1000, 20000), "3616000 bytes 36160 packets",
       "20000000 bytes 200000 packets"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const Texts off = With("", row.datagrams);
    if (row.off == nullptr) {
      EXPECT_THAT(off, testing::Not(Contains(HasSubstr("packets"))));
    } else {
      EXPECT_THAT(off, Contains(HasSubstr(row.off)));
    }
    EXPECT_THAT(With(On("Count64Bit"), row.datagrams), Contains(HasSubstr(row.on)));
  }
}

// The same id means other fields in another domain, and a rate holds where it was told.
TEST_F(NumberSwitches, TemplatesPerDomain) {
  Fields other = kFlowFields;
  std::swap(other[7], other[8]);
  const std::vector<Bytes> datagrams = {
      FromDomain(1, V9(Learn(kFlowFields))), FromDomain(2, V9(Learn(other))),
      FromDomain(2, V9(Learn({{34, 4}}, 300), Data(Wire().U32(10), 300))),
      FromDomain(1, V9(Data(FlowRecord())))};
  EXPECT_THAT(With("", datagrams), Contains(HasSubstr("100 bytes 10000 packets")));
  EXPECT_THAT(With(On("TemplatesPerDomain"), datagrams), Contains(HasSubstr("1000 bytes 10 pack")));
}

TEST_F(NumberSwitches, DomainsOnTheChannel) {
  host_.Policy(On("TemplatesPerDomain") + kFlowsOnly).Attach(meter_);
  host_.Forget();
  Send(FromDomain(1, V9(Learn(kFlowFields))));
  const Texts posted = host_.Take("PostChannelMessage");
  ASSERT_THAT(posted, ElementsAre(HasSubstr(" 00000001")));
  Bytes carrier = UdpHeaders({}, 0);
  carrier.resize(24);
  const Bytes old = Wire().Raw(carrier).Raw(V9Templates().Template(256, kFlowFields).Build()).Get();
  const Bytes own = Wire().U32(2).Raw(old).Get();
  for (const bool per_domain : {false, true}) {
    for (const bool has_domain : {false, true}) {
      SCOPED_TRACE(testing::Message() << per_domain << has_domain);
      With(per_domain ? On("TemplatesPerDomain") : "", {});
      Bytes message = has_domain ? own : old;
      meter_->OnChannelMessage(
          has_domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
          static_cast<unsigned>(message.size()), message.data());
      Send(FromDomain(2, V9(Data(FlowRecord()))));
      EXPECT_THAT(Said(), ElementsAre(kFlow));
      Send(FromDomain(3, V9(Data(FlowRecord()))));
      EXPECT_EQ(Said().size(), per_domain && has_domain ? 0U : 1U);
    }
  }
  Bytes cut = {0, 0, 0, 2};
  meter_->OnChannelMessage(CHANNELID_NETFLOW_DOMAIN_TEMPLATES, 4, cut.data());
}

TEST_F(NumberSwitches, SharePaddedTemplates) {
  const struct {
    const char* name;
    Bytes datagram;
    bool is_whole;
  } cases[] = {
      {"OneByte", V9(Learn(kFlowFields).Pad(1)).Build(), true},
      {"ThreeBytes", V9(Learn(kFlowFields).Pad(3)).Build(), true},
      {"Ipfix", IpfixMessage().Add(Set(2).Template(256, kFlowFields).Pad(3)).Build(), true},
      {"CutTemplate", V9(Learn(kFlowFields).Raw(Wire().U16(257).U16(1))).Build(), false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(With("", {row.datagram}), ElementsAre("Log 5 template record will overflow "));
    With(On("SharePaddedTemplates"), {});
    Send(row.datagram);
    const Texts lines = host_.Take();
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines, Contains(StartsWith(row.is_whole ? "PostChannelMessage" : "Log 5")));
  }
}

TEST_F(NumberSwitches, KeepEgressRecords) {
  Fields fields = kFlowFields;
  fields.push_back({61, 1});
  Set data = DataSet(256);
  data.Record(Wire(FlowRecord()).U8(0)).Record(Wire(FlowRecord()).U8(1));
  const std::vector<Bytes> datagrams = {V9(Learn(fields), data).Build()};
  EXPECT_THAT(With("", datagrams), ElementsAre(kFlow));
  EXPECT_THAT(With(On("KeepEgressRecords"), datagrams), ElementsAre(kFlow, kFlow));
  EXPECT_THAT(With(On("KeepEgressRecords") + On("IgnoreAllEgress"), datagrams), ElementsAre(kFlow));
}

// With a template of fixed and one of variable length.
TEST_F(NumberSwitches, ExactTimes) {
  const auto ntp = [](std::uint64_t seconds, std::uint32_t fraction) {
    return Wire().U32(static_cast<std::uint32_t>(seconds + 2'208'988'800)).U32(fraction);
  };
  const struct {
    const char* name;
    std::uint16_t first;
    Wire start;
    Wire end;
    const char* times;
  } cases[] = {
      {"Seconds", 150, Wire().U32(1'700'000'000), Wire().U32(1'700'000'002),
       "from 1700000000 0, to 1700000002 0"},
      {"Milliseconds", 152, Wire().U64(1'700'000'000'123), Wire().U64(1'700'000'001'456),
       "from 1700000000 123, to 1700000001 456"},
      {"Microseconds", 154, ntp(1'700'000'000, 0x80000000), ntp(1'700'000'001, 0),
       "from 1700000000 500, to 1700000001 0"},
      {"Nanoseconds", 156, ntp(1'700'000'000, 0x80000000), ntp(1'700'000'001, 0),
       "from 1700000000 500, to 1700000001 0"},
      {"EndAlone", 152, Wire().U64(0), Wire().U64(1'700'000'001'456),
       "from 1700000001 456, to 1700000001 456"},
      {"Swapped", 150, Wire().U32(1'700'000'002), Wire().U32(1'700'000'000),
       "from 1700000000 0, to 1700000002 0"},
  };
  for (const auto& row : cases) {
    for (const bool variable : {false, true}) {
      SCOPED_TRACE(testing::Message() << row.name << variable);
      const auto size = static_cast<std::uint16_t>(row.start.Get().size());
      Fields fields = kFlowFields;
      fields.push_back({row.first, size});
      fields.push_back({static_cast<std::uint16_t>(row.first + 1), size});
      Wire record = Wire(FlowRecord()).Raw(row.start.Get()).Raw(row.end.Get());
      if (variable) {
        fields.push_back({32861, kVariableLength});
        record.U8(1).U8('x');
      }
      const std::string settings = On("AllowVariableLengthStrings") + On("UseRouterTimestamps") +
                                   "<MeterAppID>false</MeterAppID>";
      const std::vector<Bytes> datagrams = {V9(Learn(fields), Data(record)).Build()};
      EXPECT_THAT(With(settings + On("ExactTimes"), datagrams), ElementsAre(HasSubstr(row.times)));
      if (row.first != 152) {
        EXPECT_THAT(With(settings, datagrams), testing::Not(Contains(HasSubstr(row.times))));
      }
    }
  }
  // A record without such times has those of the uptime, whatever came before.
  Fields timed = kFlowFields;
  timed.push_back({150, 4});
  const Texts said = With(On("ExactTimes") + On("UseRouterTimestamps"),
                          {V9(Learn(timed), Data(Wire(FlowRecord()).U32(1'700'000'000))).Build(),
                           V9(Learn(kFlowFields, 257), Data(FlowRecord(), 257)).Build()});
  EXPECT_THAT(said, ElementsAre(HasSubstr("from 1700000000 0"), HasSubstr("from 1699999990 0")));
}

// In either order, in one set with another rate before it, and the interval alone.
TEST_F(NumberSwitches, UseSamplingSpace) {
  const struct {
    const char* name;
    Fields fields;
    Wire record;
    const char* off;
    const char* on;
  } cases[] = {
      {"OneInTen", {{305, 4}, {306, 4}}, Numbers({1, 9}), "1000 bytes", "10000 bytes"},
      {"SpaceFirst", {{306, 4}, {305, 4}}, Numbers({9, 1}), "1000 bytes", "10000 bytes"},
      {"AnotherBefore", {{305, 4}, {306, 4}}, Numbers({7, 700, 3, 7}), "3000 bytes", "3000 bytes"},
      {"Rounded", {{305, 4}, {306, 4}}, Numbers({4, 10}), "4000 bytes", "4000 bytes"},
      {"Everything", {{305, 4}, {306, 4}}, Numbers({100, 0}), "100000 bytes", "1000 bytes"},
      {"IntervalAlone", {{305, 4}}, Numbers({50}), "50000 bytes", "50000 bytes"},
      {"SpaceAlone", {{306, 4}}, Numbers({9}), "1000 bytes", "1000 bytes"},
      {"NoInterval", {{305, 4}, {306, 4}}, Numbers({0, 9}), "1000 bytes", "1000 bytes"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const std::vector<Bytes> datagrams = {
        V9(Learn({{306, 4}}, 301), Data(Numbers({500}), 301)).Build(),
        V9(Learn(row.fields, 300), Data(row.record, 300)).Build(),
        V9(Learn(kFlowFields), Data(FlowRecord())).Build()};
    EXPECT_THAT(With("", datagrams), Contains(HasSubstr(std::string(" ") + row.off)));
    EXPECT_THAT(With(On("UseSamplingSpace"), datagrams),
                Contains(HasSubstr(std::string(" ") + row.on)));
  }
}

TEST_F(NumberSwitches, CountLeftOut) {
  Fields two_ways = kFlowFields;
  two_ways.push_back({32769, 4});
  two_ways.push_back({61, 1});
  const auto record = [](std::uint32_t bytes, std::uint32_t reverse, std::uint8_t direction) {
    return Wire()
        .Ip("10.0.0.1")
        .Ip("10.0.0.2")
        .U16(51000)
        .U16(80)
        .U8(6)
        .U32(3)
        .U32(7)
        .U32(10)
        .U32(bytes)
        .U32(reverse)
        .U8(direction);
  };
  const auto told = [&](const std::string& settings, const Set& data) {
    With(settings + On("CountLeftOut"), {});
    Send(V9(Learn(two_ways), data));
    return host_.Take("COUNTERID_LEFTOUT");
  };
  const auto one = [&](std::uint32_t bytes, std::uint32_t reverse) {
    return Data(record(bytes, reverse, 0));
  };
  const std::string line = "UpdateCounterKeyLen COUNTERID_LEFTOUT 11 C0.00.02.01 ";
  const std::string filter = "<FilterHostsInclude>10.9.9.9</FilterHostsInclude>";
  EXPECT_THAT(told("", one(1000, 0)), IsEmpty());
  EXPECT_THAT(told("", one(0, 0)), ElementsAre(line + "1 1"));
  EXPECT_THAT(told("", one(1000, 10)), ElementsAre(line + "8 1"));
  EXPECT_THAT(told("", one(0, 10)), IsEmpty());
  EXPECT_THAT(told(filter, one(1000, 0)), ElementsAre(line + "3 1"));
  EXPECT_THAT(told(On("CheckPacketsForCorruption"), one(5, 0)), ElementsAre(line + "4 1"));
  EXPECT_THAT(told("", DataSet(256).Record(record(9, 0, 0)).Record(record(9, 0, 1))),
              ElementsAre(line + "0 1"));
  With(On("CountLeftOut"), {});
  Send(V9(Learn({{34, 4}}), Data(Wire().U32(0))));
  EXPECT_THAT(host_.Take("COUNTERID_LEFTOUT"), ElementsAre(line + "2 1"));
  With("", {});
  Send(V9(Learn(two_ways), one(0, 0)));
  EXPECT_THAT(host_.Take("COUNTERID_LEFTOUT"), IsEmpty());
}

}  // namespace
}  // namespace flow::test
