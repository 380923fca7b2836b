// SPDX-License-Identifier: Apache-2.0
#include "util/ombrel_time.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <time.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace {

class OmbrelTime : public testing::Test {
 protected:
  OmbrelTime() {
    if (const char* zone = std::getenv("TZ")) before_ = zone;
  }
  ~OmbrelTime() override {
    if (before_) {
      SetZone(before_->c_str());
    } else {
      unsetenv("TZ");
      tzset();
    }
  }
  // A rule rather than a name, so that no time-zone files are needed.
  static void SetZone(const char* rule) {
    setenv("TZ", rule, 1);
    tzset();
  }

 private:
  std::optional<std::string> before_;
};

constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";

TEST_F(OmbrelTime, RendersInLocalTime) {
  const struct {
    const char* zone;
    COmbrelTime time;
    std::string text;
    const char* fraction;
    const char* zone_name;
  } rows[] = {
      {kBerlin, {1794855076, 42}, "Mon Nov 16 19:51:16 2026", "-000042", "CET"},
      {kBerlin, {1783180800, 999999}, "Sat Jul  4 18:00:00 2026", "-999999", "CEST"},
      {kBerlin, {-3600 + 3661, 5}, "Thu Jan  1 01:01:01 1970", "-000005", "CET"},
      {"UTC0", {-1, 0}, "Wed Dec 31 23:59:59 1969", "-000000", "UTC"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    SetZone(row.zone);
    EXPECT_EQ(row.time.hour_number(), std::stoi(row.text.substr(11, 2)));
    EXPECT_EQ(row.time.to_s_vshort(), row.text);
    EXPECT_EQ(row.time.to_s(), row.text + row.fraction);
    EXPECT_EQ(row.time.to_s_short(), row.text.substr(11, 8) + row.fraction);
    EXPECT_EQ(row.time.to_s_zone(), row.text + " " + row.zone_name);
  }
}

TEST_F(OmbrelTime, NowLiesBetweenTwoLooksAtTheClock) {
  const auto microseconds = [](long seconds, long fraction) {
    return seconds * 1000000 + fraction;
  };
  timeval before = {};
  timeval after = {};
  gettimeofday(&before, nullptr);
  const COmbrelTime now = COmbrelTime::Now();
  const std::int32_t seconds = COmbrelTime::now_tv_sec();
  gettimeofday(&after, nullptr);
  EXPECT_GE(microseconds(now.tv_sec, now.tv_usec), microseconds(before.tv_sec, before.tv_usec));
  EXPECT_LE(microseconds(now.tv_sec, now.tv_usec), microseconds(after.tv_sec, after.tv_usec));
  EXPECT_GE(seconds, before.tv_sec);
  EXPECT_LE(seconds, after.tv_sec);
}

}  // namespace
