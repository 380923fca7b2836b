// SPDX-License-Identifier: Apache-2.0
// Keys, numbers and times as people read them.

#include "host/names/key_text.h"

#include <gtest/gtest.h>

#include "host/base/number_text.h"
#include "host/names/well_known_names.h"

namespace flow::host {
namespace {

struct KeyCase {
  const char* name;
  KeyKind kind;
  const char* key;
  const char* text;
};

class Keys : public testing::TestWithParam<KeyCase> {};

TEST_P(Keys, Read) { EXPECT_EQ(ReadableKey(GetParam().kind, GetParam().key), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    All, Keys,
    testing::ValuesIn<KeyCase>({
        {"Ipv4", KeyKind::kIpv4, "C0.A8.01.0A", "192.168.1.10"},
        {"Ipv4BadDigit", KeyKind::kIpv4, "C0.A8.01.0G", "C0.A8.01.0G"},
        {"Ipv4TooLong", KeyKind::kIpv4, "C0.A8.01.0A0", "C0.A8.01.0A0"},
        {"Ipv6", KeyKind::kIpv6, "20010DB8000000000000000000000001", "2001:db8::1"},
        {"Ipv6TooShort", KeyKind::kIpv6, "20010DB8", "20010DB8"},
        {"Interface", KeyKind::kInterface, "0A.00.00.01_0000000A", "10.0.0.1 if 10"},
        {"Total", KeyKind::kTotals, "TOTALBW", "all"},
        {"Transit", KeyKind::kTotals, "DIR_TRANSIT", "transit"},
        {"PortWithoutName", KeyKind::kApplication, "p-FFFE", "65534"},
        {"NamedApplication", KeyKind::kApplication, "ipsec-esp", "ipsec-esp"},
        {"Protocol", KeyKind::kProtocol, "06", "6 (tcp)"},
        {"ProtocolWithoutName", KeyKind::kProtocol, "FE", "254"},
        {"Ethertype", KeyKind::kEthertype, "86DD", "IPv6"},
        {"Subnet", KeyKind::kSubnet, "C0.A8.01.00/18", "192.168.1.0/24"},
        {"External", KeyKind::kSubnet, "external", "external"},
        {"AsNumber", KeyKind::kAsNumber, "64500", "AS64500"},
        {"AsNumberOfFourBytes", KeyKind::kAsNumber, "-94967296", "AS4200000000"},
        {"AsOnInterface", KeyKind::kAsInterface, "64500\\0A.00.00.01_00000003",
         "AS64500 on 10.0.0.1 if 3"},
        {"Vlan", KeyKind::kVlan, "0064", "100"},
        {"NoVlan", KeyKind::kVlan, "0000", "untagged"},
        {"MacPair", KeyKind::kMacPair, "02:00:00:00:00:01 ->02:00:00:00:00:02",
         "02:00:00:00:00:01 -> 02:00:00:00:00:02"},
        {"Session", KeyKind::kSession,
         "06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_00.00.00.00_00000000_00000000",
         "tcp 10.0.0.1:51000 <-> 10.0.0.2:80"},
        {"SessionOfOneExporter", KeyKind::kSession,
         "11C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000007",
         "udp 10.0.0.1:51000 <-> 10.0.0.2:80 at 192.0.2.1 if 3/7"},
        {"SessionOfMergedService", KeyKind::kSession,
         "06C:0A.00.00.01:p-FFFF_0A.00.00.02:p-01BB_00.00.00.00_00000000_00000000",
         "tcp 10.0.0.1:* <-> 10.0.0.2:443"},
        {"SessionOfPort65535", KeyKind::kSession,
         "06C:0A.00.00.01:p-FFFF_0A.00.00.02:p-1F90_00.00.00.00_00000000_00000000",
         "tcp 10.0.0.1:65535 <-> 10.0.0.2:8080"},
        {"SessionOfSflow", KeyKind::kSession,
         "06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_00.00.00.00_0000_0000",
         "tcp 10.0.0.1:51000 <-> 10.0.0.2:80"},
        {"SessionOfIpv6", KeyKind::kSession,
         "3AD:20010DB8000000000000000000000001:p-0000_20010DB8000000000000000000000002:p-0000_"
         "00.00.00.00_00000000_00000000",
         "ipv6-icmp [2001:db8::1]:0 <-> [2001:db8::2]:0"},
        {"SessionCut", KeyKind::kSession, "06C:0A.00.00.01:p-C738", "06C:0A.00.00.01:p-C738"},
        {"SessionEmpty", KeyKind::kSession, "", ""},
        {"GuessedInterface", KeyKind::kGuess, "0A.00.00.01_00000003", "10.0.0.1 if 3"},
        {"GuessedText", KeyKind::kGuess, "eleven.char", "eleven.char"},
        {"TerminalEscape", KeyKind::kText, "\x1b[2Jhi", "\\x1B[2Jhi"},
    }),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Keys, PortsHaveTheSystemsNames) {
  const std::string_view name = ServiceName(443);
  if (name.empty()) GTEST_SKIP() << "this system has no list of services";
  EXPECT_EQ(ReadableKey(KeyKind::kApplication, "p-01BB"), "443 (" + std::string(name) + ")");
}

TEST(Numbers, Read) {
  EXPECT_EQ(Thousands(999), "999");
  EXPECT_EQ(Thousands(1000), "1,000");
  EXPECT_EQ(Thousands(18446744073709551615U), "18,446,744,073,709,551,615");
  EXPECT_EQ(SiBytes(999), "999 B");
  EXPECT_EQ(SiBytes(1000), "1.00 kB");
  EXPECT_EQ(SiBytes(9'994), "9.99 kB");
  EXPECT_EQ(SiBytes(9'996), "10.0 kB");
  EXPECT_EQ(SiBytes(99'960), "100 kB");
  EXPECT_EQ(SiBytes(999'499), "999 kB");
  EXPECT_EQ(SiBytes(999'500), "1.00 MB");
  EXPECT_EQ(SiBytes(18446744073709551615U), "18.4 EB");
}

TEST(Times, Read) {
  EXPECT_EQ(DurationText(0), "0 ms");
  EXPECT_EQ(DurationText(59'999), "59.9 s");
  EXPECT_EQ(DurationText(60'000), "1 min");
  EXPECT_EQ(DurationText(3'661'000), "1 h 1 min");
  EXPECT_EQ(DurationText(90'000'000), "1 d 1 h");
  EXPECT_EQ(TimeText(1'700'000'000), "2023-11-14 22:13:20");
}

}  // namespace
}  // namespace flow::host
