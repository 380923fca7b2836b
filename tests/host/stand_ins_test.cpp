// SPDX-License-Identifier: Apache-2.0
// IPv4 addresses in place of exporters over IPv6, in use and over a restart.

#include "host/intake/stand_ins.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/base/error.h"
#include "host/names/key_text.h"
#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

using testing::HasSubstr;

constexpr std::int64_t kNow = 1'700'000'000;
constexpr std::int64_t kWeek = StandIns::kLongestSeconds;

IpAddress Address(const std::string& text) { return *IpAddress::Parse(text); }

std::string TextOf(const std::optional<IpAddress>& address) {
  return address ? address->Text() : "none";
}

TEST(StandIns, AreGivenInOrderAndKnownBothWays) {
  StandIns stand_ins;
  EXPECT_EQ(TextOf(stand_ins.Of(Address("2001:db8::1"), kNow)), "240.0.0.1");
  EXPECT_EQ(TextOf(stand_ins.Of(Address("::"), kNow)), "240.0.0.2");
  EXPECT_EQ(TextOf(stand_ins.Of(Address("2001:db8::1"), kNow)), "240.0.0.1");
  EXPECT_EQ(stand_ins.RealOf(Address("240.0.0.1")).Text(), "2001:db8::1");
  EXPECT_EQ(stand_ins.RealOf(Address("240.0.0.3")).Text(), "240.0.0.3");
  EXPECT_EQ(stand_ins.RealOf(Address("192.0.2.1")).Text(), "192.0.2.1");
  EXPECT_EQ(stand_ins.Find(Address("::")).Text(), "240.0.0.2");
  EXPECT_EQ(stand_ins.Find(Address("192.0.2.1")).Text(), "192.0.2.1");
  EXPECT_TRUE(StandIns::IsOne(Address("240.255.255.255")));
  EXPECT_FALSE(StandIns::IsOne(Address("241.0.0.0")));
  EXPECT_FALSE(StandIns::IsOne(Address("f000::")));
}

TEST(StandIns, AreBounded) {
  StandIns stand_ins;
  std::array<std::uint8_t, 16> bytes{0x20};
  for (std::size_t i = 0; i < StandIns::kMost; ++i) {
    bytes[14] = static_cast<std::uint8_t>(i >> 8);
    bytes[15] = static_cast<std::uint8_t>(i);
    ASSERT_TRUE(stand_ins.Of(IpAddress::Ipv6(bytes), kNow));
  }
  EXPECT_EQ(TextOf(stand_ins.Of(Address("2001:db8::1"), kNow)), "none");
  EXPECT_EQ(TextOf(stand_ins.Of(IpAddress::Ipv6(bytes), kNow)), "240.1.0.0");
}

class KeptStandIns : public testing::Test {
 protected:
  KeptStandIns() { std::filesystem::create_directory(folder_ / "state"); }

  // The stand-in of an address after a restart.
  std::string AfterRestart(const std::string& real, std::int64_t now = kNow) {
    StandIns stand_ins;
    trouble_.clear();
    stand_ins.KeepIn((folder_ / "state").string(), now, &trouble_);
    return TextOf(stand_ins.Of(Address(real), now));
  }

  const TemporaryFolder folder_;
  std::string trouble_;
};

TEST_F(KeptStandIns, OutliveARestartAndAWeekOfSilence) {
  StandIns stand_ins;
  stand_ins.KeepIn((folder_ / "state").string(), kNow, &trouble_);
  stand_ins.Save();
  EXPECT_FALSE(std::filesystem::exists(folder_ / "state/stand-ins"));
  stand_ins.Of(Address("2001:db8::1"), kNow - kWeek);
  stand_ins.Of(Address("2001:db8::2"), kNow);
  stand_ins.Save();
  EXPECT_EQ(AfterRestart("2001:db8::2"), "240.0.0.2");
  EXPECT_EQ(AfterRestart("2001:db8::1"), "240.0.0.1");
  EXPECT_EQ(AfterRestart("2001:db8::3"), "240.0.0.3");
  EXPECT_EQ(AfterRestart("2001:db8::1", kNow + 1), "240.0.0.3");  // and no other's
  stand_ins.Of(Address("2001:db8::1"), kNow + 1);                 // has sent again
  stand_ins.Save();
  EXPECT_EQ(AfterRestart("2001:db8::1", kNow + 2), "240.0.0.1");
  EXPECT_EQ(trouble_, "");
}

TEST_F(KeptStandIns, AreReadUpToTheDamage) {
  const std::string start = "flowhost stand-ins 1\n240.0.0.9 2001:db8::9 1700000000\n";
  for (const std::string rest :
       {"", "end 2\n", "240.0.0.9 2001:db8::2 1700000000\nend 2\n",
        "240.0.0.2 2001:db8::9 1700000000\nend 2\n", "10.0.0.2 2001:db8::2 1700000000\nend 2\n",
        "240.0.0.2 10.0.0.2 1700000000\nend 2\n", "240.0.0.2 2001:db8::2 \nend 2\n",
        "240.0.0.2 2001:db8::2\nend 2\n"}) {
    SCOPED_TRACE(rest);
    WriteFile(folder_ / "state/stand-ins", start + rest);
    EXPECT_EQ(AfterRestart("2001:db8::9"), "240.0.0.9");
    EXPECT_THAT(trouble_, HasSubstr("is damaged and now stands aside as"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "state/stand-ins"));
  }
}

TEST_F(KeptStandIns, StayNewsUntilTheyAreWritten) {
  StandIns stand_ins;
  stand_ins.KeepIn((folder_ / "state").string(), kNow, &trouble_);
  stand_ins.Of(Address("2001:db8::1"), kNow);
  std::filesystem::remove_all(folder_ / "state");
  EXPECT_THROW(stand_ins.Save(), HostError);
  std::filesystem::create_directory(folder_ / "state");
  stand_ins.Save();
  WriteFile(folder_ / "state/stand-ins", ReadFile(folder_ / "state/stand-ins"));
  EXPECT_EQ(AfterRestart("2001:db8::1"), "240.0.0.1");
}

TEST(RealKeys, ReadAsTheExporterOverIpv6) {
  StandIns stand_ins;
  stand_ins.Of(Address("2001:db8::1"), kNow);
  struct {
    const char* name;
    KeyKind kind;
    std::string key;
    std::string text;
  } const cases[] = {
      {"Exporter", KeyKind::kGuess, "F0.00.00.01", "2001:db8::1"},
      {"Interface", KeyKind::kGuess, "F0.00.00.01_0000000A", "2001:db8::1 if 10"},
      {"As", KeyKind::kAsInterface, "64500\\F0.00.00.01_00000003", "AS64500 on 2001:db8::1 if 3"},
      {"Flow", KeyKind::kSession,
       "06C:F0.00.00.01:p-C738_0A.00.00.02:p-0050_F0.00.00.01_00000003_00000007",
       "tcp 240.0.0.1:51000 <-> 10.0.0.2:80 at 2001:db8::1 if 3/7"},
      {"Flow6", KeyKind::kSession,
       "06D:20010DB8000000000000000000000001:p-0001_20010DB8000000000000000000000002:p-0002_"
       "F0.00.00.01_00000003_00000007",
       "tcp [2001:db8::1]:1 <-> [2001:db8::2]:2 at 2001:db8::1 if 3/7"},
      {"UnknownStandIn", KeyKind::kGuess, "F0.00.00.02", "240.0.0.2"},
      {"Host", KeyKind::kIpv4, "F0.00.00.01", "240.0.0.1"},
      {"NoBackslash", KeyKind::kAsInterface, "F0.00.00.01", "F0.00.00.01"},
      {"Empty", KeyKind::kAsInterface, "", ""},
      {"EmptyFlow", KeyKind::kSession, "", ""},
      {"Text", KeyKind::kGuess, "Forty-seven", "Forty-seven"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(ReadableKey(row.kind, RealKey(stand_ins, row.kind, row.key)), row.text) << row.name;
  }
  EXPECT_EQ(RealKey(stand_ins, KeyKind::kGuess, "F0.00.00.01_0000000A"),
            "20010DB8000000000000000000000001_0000000A");
}

}  // namespace
}  // namespace flow::host::test
