// SPDX-License-Identifier: Apache-2.0
// How many log messages of a kind are shown.
#include "host/base/log_limit.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace flow::host {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(LogLimit, ShowsAFewOfAKindAndSumsTheRest) {
  LogLimit limit;
  const LogLimit::Clock::time_point start{};
  int shown = 0;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const std::string text = fmt::format("set of {} bytes from {}", i, IpAddress::Ipv4(i).Text());
    const IpAddress exporter = IpAddress::Ipv4(i % 3);
    shown += limit.Take({"NetFlow", "warning", text, &exporter}, start + 1s) ? 1 : 0;
  }
  EXPECT_EQ(shown, 5);
  EXPECT_TRUE(limit.Take({"NetFlow", "warning", "something else"}, start + 1s));
  EXPECT_FALSE(limit.Take({"NetFlow", "warning", "something else"}, start + 2s));
  EXPECT_TRUE(limit.Summaries(start + 10s).empty());
  EXPECT_THAT(
      limit.Summaries(start + 11s),
      ElementsAre("NetFlow: warning: set of 999 bytes from 0.0.3.231 ... and 995 more like it "
                  "from 3 exporters in 10 s",
                  "NetFlow: warning: something else ... and 1 more like it in 10 s"));
  EXPECT_TRUE(limit.Take({"NetFlow", "warning", "set of 7 bytes from 10.0.0.1"}, start + 12s));
}

// Texts that a stranger makes up use up no memory.
TEST(LogLimit, KeepsFewKinds) {
  LogLimit limit;
  const LogLimit::Clock::time_point now{};
  int shown = 0;
  for (int i = 0; i < 100'000; ++i) {
    std::string text;
    for (int digits = i; digits > 0; digits /= 10) {
      text += static_cast<char>('a' + digits % 10);
    }
    shown += limit.Take({"NetFlow", "warning", text}, now) ? 1 : 0;
  }
  EXPECT_LT(shown, 300);
  const std::vector<std::string> lines = limit.Summaries(now, true);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], testing::HasSubstr(" ... and 99,7"));
}

}  // namespace
}  // namespace flow::host
