// SPDX-License-Identifier: Apache-2.0
// The counter updates that each switch adds to a record, and no others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/metering/metered_record.h"

namespace flow::test {
namespace {

using testing::ElementsAreArray;

struct Case {
  const char* name;
  Given given;
  std::vector<std::string> updates;
};

class CounterUpdates : public testing::TestWithParam<Case> {};

TEST_P(CounterUpdates, Are) {
  std::vector<std::string> lines = MeteredRecord(GetParam().given).Meter();
  // What every record causes is not of interest here: mark, totals, protocol, flow.
  std::erase_if(lines, [](const std::string& line) {
    for (const char* const always :
         {"MarkRecord", "TOTALBW", "COUNTERID_IPPROTOCOL", "COUNTERID_FLOWS", "UpdateFlowVolume"}) {
      if (line.find(always) != std::string::npos) return true;
    }
    return false;
  });
  EXPECT_THAT(lines, ElementsAreArray(GetParam().updates));
}

const auto kName = [](const auto& row) { return std::string(row.param.name); };

INSTANTIATE_TEST_SUITE_P(
    AsNumber, CounterUpdates,
    testing::ValuesIn<Case>({
        {"OfBothOutsideSides",
         {.on = "MeterASN", .as = {65001, 4294967295}},  // the host has always seen them signed
         {"UpdateCounter2 COUNTERID_ASN 5 65001 0 1000 1 1000",
          "UpdateCounter2 COUNTERID_ASN 2 -1 0 1000 2 1000"}},
        {"NotOfAHomeSource",
         {.on = "MeterASN", .as = {65001, 65002}, .home = "10.0.0.0/8"},
         {"UpdateCounter2 COUNTERID_ASN 5 65002 0 1000 2 1000"}},
        {"NotOfAHomeDestination",
         {.on = "MeterASN", .as = {65001, 65002}, .home = "192.168.0.0/16"},
         {"UpdateCounter2 COUNTERID_ASN 5 65001 0 1000 1 1000"}},
        {"SourceInTheHomeSet",
         {.on = "MeterASN", .as = {65001, 65002}, .home = "0.0.0.0/0", .home_as = {65001}},
         {"UpdateCounter2 COUNTERID_ASN 5 65001 0 1000 3 1000",
          "UpdateCounter2 COUNTERID_ASN 5 65002 0 1000 2 1000"}},
        {"DestinationInTheHomeSetAndNoSource",
         {.on = "MeterASN", .as = {0, 65002}, .home_as = {65002}},
         {"UpdateCounter2 COUNTERID_ASN 1 0 0 1000 1 1000",
          "UpdateCounter2 COUNTERID_ASN 5 65002 0 1000 4 1000"}},
    }),
    kName);

INSTANTIATE_TEST_SUITE_P(
    Prefix, CounterUpdates,
    testing::ValuesIn<Case>({
        {"WithinAByteAndHost",
         {.on = "MeterMasks", .masks = {20, 32}, .version = 9},
         {"UpdateCounter3 COUNTERID_PREFIX4 11 10.1.0.0/20 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 15 192.168.1.77/32 0 1000 3 1 2 1000"}},
        {"NoneAndTooLong",
         {.on = "MeterMasks", .masks = {0, 255}, .version = 10},
         {"UpdateCounter3 COUNTERID_PREFIX4 9 0.0.0.0/0 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 16 192.168.1.77/255 0 1000 3 1 2 1000"}},
        {"NotOfVersion8", {.on = "MeterMasks", .masks = {20, 32}, .version = 8}, {}},
        {"HomeSides",
         {.on = "MeterMasks", .masks = {1, 31}, .version = 9, .home = "0.0.0.0/0"},
         {"UpdateCounter3 COUNTERID_PREFIX4 9 0.0.0.0/1 0 1000 3 1 4 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 15 192.168.1.76/31 0 1000 3 1 5 1000"}},
        {"NoHomeSourceWithoutANumber",
         {.on = "MeterMasks", .as = {0, 200}, .masks = {8, 8}, .version = 9, .home_as = {100}},
         {"UpdateCounter3 COUNTERID_PREFIX4 10 10.0.0.0/8 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 11 192.0.0.0/8 0 1000 3 1 2 1000"}},
        {"DestinationZeroInTheHomeSet",
         {.on = "MeterMasks", .as = {100, 0}, .masks = {8, 8}, .version = 9, .home_as = {100, 0}},
         {"UpdateCounter3 COUNTERID_PREFIX4 10 10.0.0.0/8 0 1000 3 1 4 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 11 192.0.0.0/8 0 1000 3 1 5 1000"}},
        {"Ipv6WithinAByteAndHost",
         {.on = "MeterMasks",
          .masks = {33, 128},
          .hosts6 = {"2001:db8:ffff:ffff:ffff:ffff:ffff:ffff", "::ffff:255.255.255.255"},
          .version = 9},
         {"UpdateCounter3 COUNTERID_PREFIX6 18 2001:db8:8000::/33 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX6 26 ::ffff:255.255.255.255/128 0 1000 3 1 2 1000"}},
        {"Ipv6LastBitAndWholeBytes",
         {.on = "MeterMasks",
          .masks = {127, 96},
          .hosts6 = {"::ffff", "1:2:3:4:5:6:7:8"},
          .version = 9},
         {"UpdateCounter3 COUNTERID_PREFIX6 10 ::fffe/127 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX6 16 1:2:3:4:5:6::/96 0 1000 3 1 2 1000"}},
        {"Ipv6NoneAndTooLong",
         {.on = "MeterMasks", .masks = {0, 200}, .hosts6 = {"ff::1", "ff::1"}, .version = 9},
         {"UpdateCounter3 COUNTERID_PREFIX6 4 ::/0 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX6 9 ff::1/200 0 1000 3 1 2 1000"}},
        {"AnotherIpVersion",
         {.on = "MeterMasks", .masks = {8, 8}, .ip_version = 5, .version = 9},
         {"UpdateCounter3 COUNTERID_PREFIX4 10 10.0.0.0/8 0 1000 3 1 1 1000",
          "UpdateCounter3 COUNTERID_PREFIX4 11 192.0.0.0/8 0 1000 3 1 2 1000"}},
    }),
    kName);

INSTANTIATE_TEST_SUITE_P(
    Path, CounterUpdates,
    testing::ValuesIn<Case>({
        {"IpNextHop",
         {.on = "MeterIPNextHop", .ip_nexthop = "10.0.0.1", .version = 9},
         {"UpdateCounter COUNTERID_IPNEXTHOP 0A.00.00.01 0 1000"}},
        {"BgpNextHopEvenWhenThereIsNone",
         {.on = "MeterBGPNextHop", .ip_nexthop = "10.0.0.1", .version = 10},
         {"UpdateCounter COUNTERID_BGPNEXTHOP 00.00.00.00 0 1000"}},
        {"NoNextHopOfVersion8", {.on = "MeterIPNextHop MeterBGPNextHop", .version = 8}, {}},
        {"Vrf", {.on = "MeterVRF", .vrf = "VRF:7"}, {"UpdateCounter COUNTERID_VRF VRF:7 0 1000"}},
        {"NoVrf", {.on = "MeterVRF"}, {}},
        {"Exporter",
         {.on = "MeterNetflowSources"},
         {"UpdateCounter2 COUNTERID_FLOWGEN 11 C0.00.02.01 2 1 0 1000"}},
        {"EtherType",
         {.on = "Meterv4v6", .hosts6 = {"::1", "::2"}},
         {"UpdateCounterKeyLen COUNTERID_ETHERTYPE 4 86DD 0 1000"}},
        {"EtherTypeOfAnotherIpVersion",
         {.on = "Meterv4v6", .ip_version = 0},
         {"UpdateCounterKeyLen COUNTERID_ETHERTYPE 4 0800 0 1000"}},
        {"Interfaces",
         {.on = "MeterNetflowInterfaces", .interfaces = {3, 0xFEDCBA98}},
         {"UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_00000003 0 1000 1 1000 3 1",
          "UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_FEDCBA98 0 1000 2 1000 3 1"}},
        {"InterfacesWithTheAsBehindThem",
         {.on = "MeterNetflowInterfaces MeterLinkAS", .as = {65001, 4294967295}},
         {"UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_00000003 0 1000 1 1000 3 1",
          "UpdateCounter3 COUNTERID_FLOWINTF 20 C0.00.02.01_00000007 0 1000 2 1000 3 1",
          R"(UpdateCounter COUNTERID_LINKAS 65001\\C0.00.02.01_00000003 0 1000)",
          R"(UpdateCounter COUNTERID_LINKAS -1\\C0.00.02.01_00000007 1 1000)"}},
        {"TheAsNeedsInterfaces", {.on = "MeterLinkAS", .as = {65001, 65002}}, {}},
        {"Macs",
         {.on = "MeterMAC", .macs = {0x0A, 0xF0}},
         {"UpdateCounterKeyLen COUNTERID_MAC 17 0A:00:00:00:00:00 0 1000",
          "UpdateCounterKeyLen COUNTERID_MAC 17 00:00:00:00:00:F0 1 1000"}},
        {"SourceMac",
         {.on = "MeterMAC", .macs = {1, 0}},
         {"UpdateCounterKeyLen COUNTERID_MAC 17 01:00:00:00:00:00 0 1000"}},
        {"DestinationMac",
         {.on = "MeterMAC", .macs = {0, 1}},
         {"UpdateCounterKeyLen COUNTERID_MAC 17 00:00:00:00:00:01 1 1000"}},
    }),
    kName);

// The way of a record with respect to the home networks, in all groups that show it.
Case Way(const char* name, const char* home, const std::string& source_meter,
         const std::string& destination_meter, const std::string& total, const std::string& meter) {
  const std::string with_meter = " 0 1000 " + meter + " 1000";
  return {name,
          {.on = "MeterHosts MeterApplications MeterNBAR",
           .application = "3:80 www",
           .home = home,
           .host_home = "10.0.0.0/8"},  // the host's own opinion counts for nothing here
          {"UpdateCounterMulti COUNTERID_HOSTS 11 0A.01.02.03 4 0 1000 2 1000 " + source_meter +
               " 1000 3 10",
           "UpdateCounterMulti COUNTERID_HOSTS 11 C0.A8.01.4D 4 0 1000 1 1000 " +
               destination_meter + " 1000 3 10",
           "UpdateCounterHashed2 COUNTERID_AGGREGATES " + total + " 0 1000 1 10",
           "UpdateCounter2 COUNTERID_APPS 6 p-0050" + with_meter,
           "UpdateCounter2 COUNTERID_NBAR 8 3:80 www" + with_meter}};
}

// Vendor texts go by what the host itself takes for home.
Case VendorTexts(const char* name, const char* host_home, const std::string& meter) {
  return {
      name,
      {.on = "MeterAppID MeterUserID",
       .text64 = "app",
       .text32 = "a user",
       .home = "0.0.0.0/0",
       .host_home = host_home},
      {"UpdateCounter COUNTERID_APPID app 0 1000", "UpdateCounter COUNTERID_APPID app 5 1",
       "UpdateCounter COUNTERID_APPID app " + meter + " 1000",
       "UpdateCounter COUNTERID_USERID a user 0 1000", "UpdateCounter COUNTERID_USERID a user 5 1",
       "UpdateCounter COUNTERID_USERID a user " + meter + " 1000"}};
}

INSTANTIATE_TEST_SUITE_P(
    Home, CounterUpdates,
    testing::Values(Way("Transit", nullptr, "7", "7", "0xc7eb260b DIR_TRANSIT", "6"),
                    Way("OutOfHome", "10.0.0.0/8", "6", "7", "0x33708c0d DIR_OUTOFHOME", "3"),
                    Way("IntoHome", "192.168.0.0/16", "7", "6", "0xf69e2d0c DIR_INTOHOME", "2"),
                    Way("WithinHome", "0.0.0.0/0", "6", "6", "0x8cb1e50e DIR_WITHINHOME", "5"),
                    VendorTexts("TextsIntoHome", "192.168.0.0/16", "1"),
                    VendorTexts("TextsOutOfHome", "10.0.0.0/8", "2"),
                    VendorTexts("TextsInTransit", nullptr, "3"),
                    VendorTexts("TextsWithinHome", "0.0.0.0/0", "4"),
                    Case{"NoTexts", {.on = "MeterAppID MeterUserID"}, {}},
                    Case{"HostsOfIpv6",
                         {.on = "MeterHosts", .hosts6 = {"2001:db8::1", "fe80::abcd"}},
                         {"UpdateCounter2 COUNTERID_HOSTS6 32 20010DB8000000000000000000000001 0 "
                          "1000 2 1000",
                          "UpdateCounter2 COUNTERID_HOSTS6 32 FE80000000000000000000000000ABCD 0 "
                          "1000 1 1000"}},
                    Case{"HostsOfAnotherIpVersion", {.on = "MeterHosts", .ip_version = 5}, {}}),
    kName);

// Applications, by the keys that are updated.
Case BothPorts(const char* name, std::uint8_t protocol, std::uint16_t source,
               std::uint16_t destination, const std::vector<std::string>& keys) {
  std::vector<std::string> updates;
  for (const std::string& key : keys) {
    updates.push_back("UpdateCounterKeyLen COUNTERID_APPS " + std::to_string(key.size()) + " " +
                      key + " 0 1000");
  }
  return {name,
          {.on = "MeterApplications MeterBothPorts MeterNBAR",
           .ports = {source, destination},
           .protocol = protocol,
           .application = "needs one port"},
          updates};
}

INSTANTIATE_TEST_SUITE_P(
    Application, CounterUpdates,
    testing::Values(
        BothPorts("ServiceIsDestination", 6, 51000, 80, {"p-0050"}),
        BothPorts("ServiceIsSource", 17, 53, 51000, {"p-0035"}),
        BothPorts("BothAreServices", 6, 80, 53, {"p-0050"}),
        BothPorts("LastServicePort", 6, 5000, 1023, {"p-03FF"}),
        BothPorts("FirstClientPort", 6, 1024, 5000, {"p-0400", "p-1388"}),
        BothPorts("EqualPorts", 17, 5000, 5000, {"p-1388", "p-1388"}),
        BothPorts("ProtocolZero", 0, 0, 65535, {"p-0000"}), BothPorts("Icmp", 1, 80, 80, {"icmp"}),
        BothPorts("Gre", 47, 80, 80, {"gre"}), BothPorts("Esp", 50, 80, 80, {"ipsec-esp"}),
        BothPorts("Icmpv6OverIpv4", 58, 80, 80, {}), BothPorts("Sctp", 132, 80, 80, {}),
        Case{"Icmpv6",
             {.on = "MeterApplications", .protocol = 58, .hosts6 = {"::1", "::2"}},
             {"UpdateCounterKeyLen COUNTERID_APPS 6 icmpv6 0 1000"}},
        Case{"SmallerPortIsTheSourceAndHasNoTag",
             {.on = "MeterApplications MeterNBAR", .ports = {65534, 65535}, .protocol = 17},
             {"UpdateCounter2 COUNTERID_APPS 6 p-FFFE 0 1000 6 1000"}},
        Case{"TagsNeedTheirSwitch",
             {.on = "MeterApplications", .protocol = 0, .application = "tag"},
             {"UpdateCounter2 COUNTERID_APPS 6 p-0050 0 1000 6 1000"}},
        Case{"AndApplications", {.on = "MeterNBAR", .application = "tag"}, {}}),
    kName);

Case Subnets(const char* name, std::uint8_t source, std::uint8_t destination,
             const std::string& source_key, const std::string& destination_key,
             std::uint16_t version = 5) {
  return {name,
          {.on = "MeterSubnets", .masks = {source, destination}, .version = version},
          {"UpdateCounter3 COUNTERID_SUBNETS " + source_key + " 0 1000 2 1000 3 10",
           "UpdateCounter3 COUNTERID_SUBNETS " + destination_key + " 0 1000 1 1000 3 10"}};
}

INSTANTIATE_TEST_SUITE_P(
    Subnets, CounterUpdates,
    testing::Values(Subnets("WithinAByte", 20, 30, "14 0A.01.00.00/14", "14 C0.A8.01.4C/1E"),
                    Subnets("ShortestAndLongest", 1, 31, "14 00.00.00.00/01", "14 C0.A8.01.4C/1F"),
                    Subnets("NoneAndHost", 0, 32, "8 external", "8 external"),
                    Subnets("TooLong", 33, 255, "8 external", "8 external"),
                    Subnets("OfVersion9", 20, 30, "8 external", "8 external", 9)),
    kName);

INSTANTIATE_TEST_SUITE_P(
    Connections, CounterUpdates,
    testing::ValuesIn<Case>({
        {"OfHosts",
         {.on = "MeterTCPConnections", .tcp_flags = 0x12},
         {"UpdateCounterKeyLen COUNTERID_HOSTS 11 0A.01.02.03 10 1",
          "UpdateCounterKeyLen COUNTERID_HOSTS 11 C0.A8.01.4D 10 1"}},
        {"OfTheSmallerPort",
         {.on = "MeterAppConnections", .tcp_flags = 0xFF},
         {"UpdateCounterKeyLen COUNTERID_APPS 6 p-0050 4 1"}},
        {"OfBothPortsWhateverTheirNumbers",
         {.on = "MeterAppConnections MeterBothPorts", .tcp_flags = 0x12},
         {"UpdateCounterKeyLen COUNTERID_APPS 6 p-C738 4 1",
          "UpdateCounterKeyLen COUNTERID_APPS 6 p-0050 4 1"}},
        {"NotOfSynAlone", {.on = "MeterTCPConnections MeterAppConnections", .tcp_flags = 0xEF}, {}},
        {"NotOfAckAlone", {.on = "MeterTCPConnections MeterAppConnections", .tcp_flags = 0xFD}, {}},
        {"NotOfUdp",
         {.on = "MeterTCPConnections MeterAppConnections", .protocol = 17, .tcp_flags = 0x12},
         {}},
        {"SwitchedOff", {.tcp_flags = 0x12}, {}},
    }),
    kName);

}  // namespace
}  // namespace flow::test
