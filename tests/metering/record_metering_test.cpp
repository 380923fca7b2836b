// SPDX-License-Identifier: Apache-2.0
// From a record to its updates: derived values, checks, classification, filters and order.

#include "metering/record_metering.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/config/parsed_policy.h"
#include "tests/metering/metered_record.h"

namespace flow::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

const auto kName = [](const auto& row) { return std::string(row.param.name); };

struct Amounts {
  const char* name;
  Given given;
  std::uint32_t packets;
  std::uint32_t bytes;
};

class MeteredAmounts : public testing::TestWithParam<Amounts> {};

TEST_P(MeteredAmounts, ReachTheTotals) {
  const Amounts& row = GetParam();
  EXPECT_THAT(MeteredRecord(row.given).Meter("TOTALBW"),
              ElementsAre("UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW 0 " +
                          std::to_string(row.bytes) + " 1 " + std::to_string(row.packets)));
}

INSTANTIATE_TEST_SUITE_P(
    Records, MeteredAmounts,
    testing::ValuesIn<Amounts>({
        {"AddedBytesPerMeteredPacket", {.sampling = 100, .l2_bytes = 14}, 1000, 114'000},
        {"NegativeAddedBytes", {.l2_bytes = -14}, 10, 860},
        {"AllWrapsAround",
         {.packets = 50'000'000, .bytes = 100'000'000, .sampling = 100, .l2_bytes = 1},
         705'032'704,
         2'115'098'112},
    }),
    kName);

struct Corruption {
  const char* name;
  Given given;
  const char* numbers;  // of the message, null for a good record
};

class CorruptRecord : public testing::TestWithParam<Corruption> {};

TEST_P(CorruptRecord, IsLoggedAndDropped) {
  MeteredRecord record(GetParam().given);
  record.policy.fMeterNetflowSources = true;
  EXPECT_THAT(record.Meter("Log "), IsEmpty()) << "nobody asked";
  record.policy.fCheckPacketsForCorruption = true;
  const auto calls = record.Meter();
  if (GetParam().numbers == nullptr) {
    EXPECT_EQ(calls.front(), "MarkRecord");
  } else {
    EXPECT_THAT(calls, ElementsAre(std::string("Log 5 Ignoring corrupt Netflow record ") +
                                   GetParam().numbers));
  }
}

// A record whose template has FIRST_SWITCHED.
Given Timed(std::uint32_t uptime, std::uint32_t first, std::uint32_t last) {
  return {.uptime = uptime, .first = first, .last = last, .first_switched = 22};
}

INSTANTIATE_TEST_SUITE_P(
    Records, CorruptRecord,
    testing::ValuesIn<Corruption>({
        {"NoPackets", {.packets = 0}, "byte=1000 pkt=0 sysuptime_from=80000 to=84000"},
        {"NoBytes", {.bytes = 0}, "byte=0 pkt=10 sysuptime_from=80000 to=84000"},
        {"MorePacketsThanBytes",
         {.packets = 1001},
         "byte=1000 pkt=1001 sysuptime_from=80000 to=84000"},
        {"SevenBytesAPacket", {.bytes = 79}, "byte=79 pkt=10 sysuptime_from=80000 to=84000"},
        {"EightBytesAPacket", {.bytes = 80}, nullptr},
        {"AddedBytesCount", {.bytes = 70, .l2_bytes = 1}, nullptr},
        {"SamplingMayWrapBytesToNothing",
         {.packets = 1, .bytes = 0x00100000, .sampling = 0x1000},
         "byte=0 pkt=4096 sysuptime_from=80000 to=84000"},
        {"EndsBeforeItsStart",
         {.first = 84'000, .last = 83'999},
         "byte=1000 pkt=10 sysuptime_from=84000 to=83999"},
        {"NoDuration", {.first = 84'000}, nullptr},
        {"Longest", {.first = 1, .last = 100'000'001}, nullptr},
        {"TooLong",
         {.first = 1, .last = 100'000'002},
         "byte=1000 pkt=10 sysuptime_from=1 to=100000002"},
        {"WithoutTimesIsOfTheLastMinute", Timed(60'000, 0, 0), nullptr},
        {"WithoutTimesInTheFirstMinute",
         {.uptime = 59'999, .first = 0, .last = 0},
         "byte=1000 pkt=10 sysuptime_from=4294967295 to=59999"},
        {"EndAloneIsATime",
         {.first = 0, .last = 100'000'001},
         "byte=1000 pkt=10 sysuptime_from=0 to=100000001"},
        {"FarthestBack", Timed(20'000'000, 10'000'000, 20'000'000), nullptr},
        {"TooFarBack", Timed(20'000'000, 9'999'999, 20'000'000),
         "byte=1000 pkt=10 sysuptime_from=9999999 to=20000000"},
        {"FarthestAhead", Timed(20'000'000, 20'000'000, 30'000'000), nullptr},
        {"TooFarAhead", Timed(20'000'000, 20'000'000, 30'000'001),
         "byte=1000 pkt=10 sysuptime_from=20000000 to=30000001"},
        {"NearOverTheWrapOfTheUptime", Timed(5'000'000, 0xFFF00000, 0xFFFFFFFF), nullptr},
        {"FarWithoutFirstSwitched",
         {.uptime = 50'000'000, .first = 1, .last = 99'000'000},
         nullptr},
    }),
    kName);

// Home AS numbers 100 and 101. The way is seen at the host totals.
TEST(HomeAsNumbers, DecideTheWay) {
  MeteredRecord record({.on = "MeterHosts", .home = "0.0.0.0/0", .home_as = {100, 101}});
  const auto expect = [&](std::uint32_t source, std::uint32_t destination, const char* way) {
    record.Set({.as = {source, destination}});
    EXPECT_EQ(record.Meter(way).size(), 1U) << source << " -> " << destination << ": " << way;
  };
  expect(100, 200, "DIR_OUTOFHOME");
  expect(200, 100, "DIR_INTOHOME");
  expect(100, 101, "DIR_WITHINHOME");
  expect(200, 201, "DIR_TRANSIT");
  expect(0, 100, "DIR_INTOHOME");  // without a number: across the border
  expect(0, 200, "DIR_OUTOFHOME");
  expect(100, 0, "DIR_OUTOFHOME");
  expect(200, 0, "DIR_INTOHOME");
  expect(0, 0, "DIR_OUTOFHOME");
  record.policy.HomeASSet.Insert(0);  // what "abc" in the policy gives
  expect(0, 0, "DIR_INTOHOME");
  expect(0, 200, "DIR_OUTOFHOME");
  record.policy.fHomeASNumbers = false;  // a feed alone decides nothing
  expect(200, 201, "DIR_WITHINHOME");
}

TEST(HomeNetwork, OfAnIpv6RecordIsThatOfTheNullAddress) {
  MeteredRecord record({.on = "TagFlowsWithDirection",
                        .hosts6 = {"2001:db8::1", "2001:db8::2"},
                        .home = "10.0.0.0/8"});
  EXPECT_EQ(record.Meter("[dir]transit").size(), 1U);
  record.Set({.hosts6 = {"2001:db8::1", "2001:db8::2"}, .home = "0.0.0.0/32"});
  EXPECT_EQ(record.Meter("[dir]internal").size(), 1U);
}

// The record goes from interface 3 to interface 7 of 192.0.2.1, from 10.1.2.3 to 192.168.1.77.
TEST(Filters, DropBehindTheExporter) {
  const struct {
    std::string key;
    const char* list;
    bool metered;
    bool metered_otherwise;  // with another IP version
  } rows[] = {
      {"FilterInterfacesInclude", "192.0.2.1_7", true, true},
      {"FilterInterfacesInclude", "192.0.2.1_8,10.1.2.3_3", false, false},
      {"FilterInterfacesExclude", "192.0.2.1_3", true, true},
      {"FilterInterfacesExclude", "192.0.2.1_3,192.0.2.1_7", false, false},
      {"FilterHostsInclude", "192.168.1.77", true, true},
      {"FilterHostsInclude", "192.0.2.1", false, true},
      {"FilterHostsExclude", "10.1.2.3", true, true},
      {"FilterHostsExclude", "10.1.2.3,192.168.1.77", false, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key + " " + row.list);
    MeteredRecord record({.on = "MeterNetflowSources MeterASN"});
    ASSERT_TRUE(record.policy.LoadFilters(ParsedPolicy(Setting(row.key, row.list)), nullptr));
    const auto calls = record.Meter();
    if (row.metered) {
      EXPECT_GT(calls.size(), 4U);
    } else {
      EXPECT_THAT(calls, ElementsAre("MarkRecord",
                                     "UpdateCounter2 COUNTERID_FLOWGEN 11 C0.00.02.01 2 1 0 1000"));
    }
    for (const std::uint8_t ip_version : std::vector<std::uint8_t>{6, 0}) {
      record.rec.ip_version = ip_version;
      EXPECT_EQ(record.Meter("TOTALBW").size(), row.metered_otherwise ? 1U : 0U);
    }
  }
}

// The exporter's key is kept from record to record, and has to follow the exporter.
TEST(Exporter, MayChangeFromRecordToRecord) {
  MeteredRecord record({.on = "MeterNetflowSources MeterNetflowInterfaces"});
  for (const auto& [address, key] : {std::pair<const char*, const char*>{"0.0.0.0", "00.00.00.00"},
                                     {"192.0.2.1", "C0.00.02.01"},
                                     {"0.0.0.0", "00.00.00.00"}}) {
    record.origin.exporter = Ip4(address).value;
    EXPECT_THAT(record.Meter(key), SizeIs(7)) << "one exporter, two interfaces, four of the flow";
  }
}

// A NetFlow v9 record that carries all there is, under a policy with every counter.
Given Everything() {
  return {.on =
              "MeterHosts MeterSubnets MeterApplications MeterNetflowInterfaces "
              "MeterNetflowSources MatchBiDirectionalFlows UseRouterTimestamps MergeHTTP "
              "MeterTCPConnections MeterAppConnections MeterNBAR MeterVRF MeterASN MeterMasks "
              "MeterIPNextHop MeterBGPNextHop MeterMAC Meterv4v6 MeterLinkAS MeterAppID "
              "MeterUserID TagFlowsWithDirection",
          .tcp_flags = 0x12,
          .as = {65001, 65002},
          .masks = {24, 16},
          .ip_nexthop = "10.0.0.254",
          .bgp_nexthop = "10.0.0.253",
          .macs = {1, 2},
          .vrf = "VRF:9",
          .application = "3:80",
          .text64 = "app",
          .text32 = "user",
          .version = 9};
}

TEST(Updates, OfAnIpv4RecordComeInTheirOrder) {
  Given given = Everything();
  given.home = "10.0.0.0/8";
  given.host_home = "192.168.0.0/16";
  MeteredRecord record(given);
  record.host.WithQueries();
  const std::string key = "06C:0A.01.02.03:p-FFFF_C0.A8.01.4D:p-0050_C0.00.02.01_00000003_00000007";
  EXPECT_THAT(record.Meter(),
              ElementsAreArray(std::vector<std::string>{
                  "MarkRecord",
                  "UpdateCounter2 COUNTERID_FLOWGEN 11 C0.00.02.01 2 1 0 1000",
                  "UpdateCounter2 COUNTERID_ASN 5 65002 0 1000 2 1000",
                  "UpdateCounter3 COUNTERID_PREFIX4 11 10.1.2.0/24 0 1000 3 1 4 1000",
                  "UpdateCounter3 COUNTERID_PREFIX4 14 192.168.0.0/16 0 1000 3 1 2 1000",
                  "UpdateCounter COUNTERID_BGPNEXTHOP 0A.00.00.FD 0 1000",
                  "UpdateCounter COUNTERID_IPNEXTHOP 0A.00.00.FE 0 1000",
                  "UpdateCounter COUNTERID_VRF VRF:9 0 1000",
                  "UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW 0 1000 1 10",
                  "UpdateCounterKeyLen COUNTERID_IPPROTOCOL 2 06 0 1000",
                  "~IsHomeAddress 10.1.2.3 0",
                  "~IsHomeAddress 192.168.1.77 1",
                  "UpdateCounterKeyLen COUNTERID_ETHERTYPE 4 0800 0 1000",
                  "UpdateCounterMulti COUNTERID_HOSTS 11 0A.01.02.03 4 0 1000 2 1000 6 1000 3 10",
                  "UpdateCounterMulti COUNTERID_HOSTS 11 C0.A8.01.4D 4 0 1000 1 1000 7 1000 3 10",
                  "UpdateCounterHashed2 COUNTERID_AGGREGATES 0x33708c0d DIR_OUTOFHOME 0 1000 1 10",
                  "UpdateCounter2 COUNTERID_APPS 6 p-0050 0 1000 3 1000",
                  "UpdateCounter2 COUNTERID_NBAR 4 3:80 0 1000 3 1000",
                  "UpdateCounter3 COUNTERID_SUBNETS 8 external 0 1000 2 1000 3 10",
                  "UpdateCounter3 COUNTERID_SUBNETS 8 external 0 1000 1 1000 3 10",
                  "UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_00000003 0 1000 1 1000 3 1",
                  "UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_00000007 0 1000 2 1000 3 1",
                  R"(UpdateCounter COUNTERID_LINKAS 65001\\C0.00.02.01_00000003 0 1000)",
                  R"(UpdateCounter COUNTERID_LINKAS 65002\\C0.00.02.01_00000007 1 1000)",
                  "UpdateFlowCounter COUNTERID_FLOWS " + key + " 0 1000",
                  "UpdateFlowCounter COUNTERID_FLOWS " + key + " 2 10",
                  "UpdateFlowVolume " + key + " 1000 0 10 0",
                  "TagFlow COUNTERID_FLOWS " + key + " [dir]internet",
                  "SetFlowTimes COUNTERID_FLOWS " + key + " 1699999980 0 1699999984 0",
                  "CloseFlow COUNTERID_FLOWS " + key,
                  "UpdateCounter COUNTERID_APPID app 0 1000",
                  "UpdateCounter COUNTERID_APPID app 5 1",
                  "UpdateCounter COUNTERID_APPID app 1 1000",
                  "UpdateCounter COUNTERID_USERID user 0 1000",
                  "UpdateCounter COUNTERID_USERID user 5 1",
                  "UpdateCounter COUNTERID_USERID user 1 1000",
                  "UpdateCounterKeyLen COUNTERID_HOSTS 11 0A.01.02.03 10 1",
                  "UpdateCounterKeyLen COUNTERID_HOSTS 11 C0.A8.01.4D 10 1",
                  "UpdateCounterKeyLen COUNTERID_APPS 6 p-0050 4 1",
                  "UpdateCounterKeyLen COUNTERID_MAC 17 01:00:00:00:00:00 0 1000",
                  "UpdateCounterKeyLen COUNTERID_MAC 17 00:00:00:00:00:02 1 1000",
              }));
}

// Beside its own groups and keys, what an IPv6 record shares with others has null addresses.
TEST(Updates, OfAnIpv6RecordHaveNullAddressesElsewhere) {
  Given given = Everything();
  given.hosts6 = {"2001:db8::1", "2001:db8::2"};
  MeteredRecord record(given);
  record.host.WithQueries();
  EXPECT_THAT(record.Meter("IsHomeAddress"),
              ElementsAre("~IsHomeAddress 0.0.0.0 0", "~IsHomeAddress 0.0.0.0 0"));
  EXPECT_THAT(record.Meter("COUNTERID_HOSTS "),
              ElementsAre("UpdateCounterKeyLen COUNTERID_HOSTS 11 00.00.00.00 10 1",
                          "UpdateCounterKeyLen COUNTERID_HOSTS 11 00.00.00.00 10 1"));
  EXPECT_THAT(record.Meter("DIR_"), IsEmpty());
}

TEST(Updates, GoOnWhenTheHostAnswersErrors) {
  Given given = Everything();
  given.host_home = "0.0.0.0/0";
  MeteredRecord record(given);
  const std::size_t calls = record.Meter().size();
  for (const char* const operation :
       {"MarkRecord", "UpdateCounter", "UpdateCounterKeyLen", "UpdateCounter2", "UpdateCounter3",
        "UpdateCounterMulti", "UpdateCounterHashed2", "UpdateFlowCounter", "UpdateFlowVolume",
        "TagFlow", "SetFlowTimes", "CloseFlow", "IsHomeAddress"}) {
    record.host.Fail(operation);
  }
  EXPECT_THAT(record.Meter(), SizeIs(calls));
  EXPECT_THAT(record.Meter("APPID app 3 1000"), SizeIs(1)) << "without an answer nothing is home";
}

TEST(Updates, NeedNoSite) {
  MeteredRecord record(Everything());
  const auto meter = [&] {
    record.metering.ProcRecord(record.host.Engine(), nullptr, record.rec, record.origin);
    return record.host.Take();
  };
  EXPECT_THAT(meter(), Contains("UpdateCounter COUNTERID_APPID app 3 1000"));
  record.Set({.on = "CheckPacketsForCorruption", .packets = 0});
  EXPECT_THAT(meter(), IsEmpty());
}

}  // namespace
}  // namespace flow::test
