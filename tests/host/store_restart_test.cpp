// SPDX-License-Identifier: Apache-2.0
// Counters that go on after a collector has ended in the middle of an hour.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "host/names/group_catalog.h"
#include "host/store/counters.h"

namespace flow::host {
namespace {

constexpr std::int64_t kDay = 1'700'006'400;
constexpr std::int64_t kFirst = kDay + 5 * kHourSeconds;
constexpr int kKeys = 12;

std::uint64_t BytesOf(int minute, int key) {
  return static_cast<std::uint64_t>((minute * 37 + key * 101) % 97 + 1);
}

StoredMinute MinuteAt(int minute, const GroupInfo& group) {
  StoredMinute made;
  made.bucket = kFirst + minute * kMinuteSeconds;
  made.from = made.bucket;
  made.to = made.bucket + kMinuteSeconds;
  GroupSums& sums = made.counts.Of(group);
  for (int key = 0; key < kKeys; ++key) {
    const std::uint64_t values[] = {BytesOf(minute, key), 0};
    sums.Add(std::to_string(key), values);
  }
  made.exporters.resize(1);
  made.exporters[0].row.counts.books.metered = kKeys;
  return made;
}

// Three keys of twelve have rows in a minute: who adds up rows lacks most of them.
TEST(Counters, GoOnInTheMiddleOfAnHour) {
  struct Case {
    const char* what;
    enum { kKilled, kEnded, kEndedInHaste } how;
    const char* lost;  // of what is kept beside the database
    bool is_exact;     // the hour that was interrupted
  };
  const Case cases[] = {
      {"ended", Case::kEnded, "", true},
      {"ended in haste", Case::kEndedInHaste, "", true},
      {"killed", Case::kKilled, "", true},
      {"ended, and the running hour is lost", Case::kEnded, "running-hour", false},
      {"killed, and the running hour is lost", Case::kKilled, "running-hour", false},
      // Of the one hour that was over the rows are all that there is.
      {"killed, and the running day is lost", Case::kKilled, "running-day", true},
  };
  const GroupInfo group = *GroupCatalog({}).Find("protocols");
  StoreOptions options;
  options.directory = fmt::format("{}/restart.{}", testing::TempDir(), getpid());
  options.kept_keys = {3, 5, kKeys};
  const auto run = [&](int from, int to, auto how) {
    Counters counters(options, std::span(&group, 1));
    for (int minute = from; minute < to; ++minute) counters.Write(MinuteAt(minute, group));
    if (how == Case::kEnded) counters.End();
    if (how == Case::kEndedInHaste) counters.EndInHaste();
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    std::filesystem::remove_all(options.directory);
    run(0, 85, each.how);
    if (*each.lost != 0) std::filesystem::remove(options.directory + "/" + each.lost);
    run(85, 130, Case::kEnded);
    const auto check = [&](const Tier& tier, std::int64_t bucket, int from, int to, bool is_exact) {
      std::map<std::string, std::uint64_t> truth;
      std::uint64_t left = 0;
      for (int minute = from; minute < to; ++minute) {
        for (int key = 0; key < kKeys; ++key) {
          truth[std::to_string(key)] += BytesOf(minute, key);
          left += BytesOf(minute, key);
        }
      }
      SCOPED_TRACE(fmt::format("{} {}", tier.name, from));
      Database database = Database::ToRead(CountersPath(options.directory));
      bool has_bounds = false;
      Statement rows = database.Prepare(fmt::format(
          "SELECT key, bytes, bound FROM protocols_{} WHERE bucket = {}", tier.name, bucket));
      while (rows.Step()) {
        const auto bytes = static_cast<std::uint64_t>(rows.Integer(1));
        left -= bytes;
        if (rows.Text(0) == kOthersKey) continue;
        const std::uint64_t has = truth.at(std::string(rows.Text(0)));
        EXPECT_LE(bytes, has);
        EXPECT_GE(bytes + static_cast<std::uint64_t>(rows.Integer(2)), has);
        has_bounds |= rows.Integer(2) != 0;
      }
      EXPECT_EQ(left, 0) << "with the others it is all";
      EXPECT_NE(has_bounds, is_exact);
      EXPECT_EQ(database.Ask(fmt::format("SELECT rebuilt FROM buckets WHERE tier = '{}' AND "
                                         "bucket = {}",
                                         tier.name, bucket)),
                is_exact ? 0 : 1);
    };
    const bool is_day_lost = std::string_view(each.lost) == "running-day";
    check(kTiers[1], kFirst, 0, 60, true);
    check(kTiers[1], kFirst + kHourSeconds, 60, 120, each.is_exact);
    check(kTiers[1], kFirst + 2 * kHourSeconds, 120, 130, true);
    check(kTiers[2], kDay, 0, 130, each.is_exact && !is_day_lost);
  }
  std::filesystem::remove_all(options.directory);
}

}  // namespace
}  // namespace flow::host
