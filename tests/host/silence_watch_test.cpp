// SPDX-License-Identifier: Apache-2.0
// Exporters that stop sending are told, once, and so are those that come back.

#include "host/period/silence_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Timestamp kStart = 3 * 3600 + 12 * 60 + 40;  // 03:12:40, in seconds

class Silence : public testing::Test {
 protected:
  using Texts = std::vector<std::string>;

  // From any port, so many seconds after the start.
  static Harvest Sent(const IpAddress& exporter, Timestamp at, const std::string& datagram) {
    static std::uint16_t port = 50000;
    Harvest harvest;
    harvest.exporters.Note(
        {{exporter, ++port}, (kStart + at) * kMicrosPerSecond, FromHex(datagram), 0});
    return harvest;
  }
  static Harvest Sent(std::uint32_t exporter, Timestamp at) {
    return Sent(IpAddress::Ipv4(exporter), at, "0005 0000");
  }
  template <class... Harvests>
  Texts Take(Timestamp at, Harvests... harvests) {
    std::vector<Harvest> all;
    (all.push_back(std::move(harvests)), ...);
    watch_.Take((kStart + at) * kMicrosPerSecond, all);
    return std::exchange(told_, {});
  }

  StandIns stand_ins_;
  Texts told_;
  SilenceWatch watch_{300 * kMicrosPerSecond, stand_ins_,
                      [this](const std::string& text) { told_.push_back(text); }};
};

TEST_F(Silence, IsToldOnceAndSoIsItsEnd) {
  EXPECT_THAT(Take(60, Sent(0x0A000001, 0), Sent(0x0A000002, 0)), IsEmpty());
  EXPECT_THAT(Take(299, Sent(0x0A000001, 290)), IsEmpty());
  EXPECT_THAT(Take(300), ElementsAre("10.0.0.2 has sent nothing for 5 min (last 03:12:40)"));
  EXPECT_THAT(Take(360, Sent(0x0A000001, 350)), IsEmpty());
  EXPECT_THAT(Take(420, Sent(0x0A000002, 400)), ElementsAre("10.0.0.2 sends again"));
  EXPECT_THAT(Take(480, Sent(0x0A000002, 430)), IsEmpty());
  EXPECT_THAT(Take(740), ElementsAre("10.0.0.1 has sent nothing for 5 min (last 03:18:30)",
                                     "10.0.0.2 has sent nothing for 5 min (last 03:19:50)"));
}

TEST_F(Silence, IsOfTheRealAddress) {
  const IpAddress real = *IpAddress::Parse("2001:db8::1");
  Take(0, Sent(*stand_ins_.Of(real, kStart), 0, "0005 0000"));
  EXPECT_THAT(Take(300), ElementsAre("2001:db8::1 has sent nothing for 5 min (last 03:12:40)"));
}

// A stranger's datagram makes no exporter of him, and what found a full queue was sent.
TEST_F(Silence, IsOfExportersAlone) {
  Harvest rejected;
  rejected.exporters.Note({{IpAddress::Ipv4(1), 1}, 0, FromHex("4747"), 0, Refusal::kFailed});
  Harvest dropped;
  const auto time = (kStart + 200) * kMicrosPerSecond;
  dropped.exporters.NoteDropped({IpAddress::Ipv4(0x0A000001), 1}, time, FromHex("0005 0000"));
  Take(0, std::move(rejected), Sent(0x0A000001, 0));
  EXPECT_THAT(Take(300, std::move(dropped)), IsEmpty());
}

TEST_F(Silence, OfManyIsToldInOneLine) {
  std::vector<Harvest> all(1);
  for (std::uint32_t i = 1; i <= 300; ++i) {
    all[0].exporters.Note({{IpAddress::Ipv4(i), 1}, kStart * kMicrosPerSecond, FromHex("0005"), 0});
  }
  watch_.Take(kStart * kMicrosPerSecond, all);
  const Texts told = Take(300);
  ASSERT_EQ(told.size(), SilenceWatch::kMostTold + 1);
  EXPECT_EQ(told.back(), "290 others have sent nothing for 5 min");
}

}  // namespace
}  // namespace flow::host::test
