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
  struct {
    const char* name;
    const char* zone;
    COmbrelTime time;
    int hour;
    const char* vshort;
    const char* fraction;
    const char* short_time;
    const char* zone_name;
  } const kCases[] = {
      {"winter",
       kBerlin,
       {1794855076, 42},
       19,
       "Mon Nov 16 19:51:16 2026",
       "-000042",
       "19:51:16",
       "CET"},
      {"summer",
       kBerlin,
       {1783180800, 999999},
       18,
       "Sat Jul  4 18:00:00 2026",
       "-999999",
       "18:00:00",
       "CEST"},
      {"after local midnight",
       kBerlin,
       {-3600 + 3661, 5},
       1,
       "Thu Jan  1 01:01:01 1970",
       "-000005",
       "01:01:01",
       "CET"},
      {"before 1970",
       "UTC0",
       {-1, 0},
       23,
       "Wed Dec 31 23:59:59 1969",
       "-000000",
       "23:59:59",
       "UTC"},
      {"last second",
       "UTC0",
       {2147483647, 0},
       3,
       "Tue Jan 19 03:14:07 2038",
       "-000000",
       "03:14:07",
       "UTC"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    SetZone(row.zone);
    EXPECT_EQ(row.time.hour_number(), row.hour);
    EXPECT_EQ(row.time.to_s_vshort(), row.vshort);
    EXPECT_EQ(row.time.to_s(), std::string(row.vshort) + row.fraction);
    EXPECT_EQ(row.time.to_s_short(), std::string(row.short_time) + row.fraction);
    EXPECT_EQ(row.time.to_s_zone(), std::string(row.vshort) + " " + row.zone_name);
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
