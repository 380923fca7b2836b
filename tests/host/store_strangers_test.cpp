// SPDX-License-Identifier: Apache-2.0
// What strangers make up, in the tables of a store that nothing is deleted from for long.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/base/memory_budget.h"
#include "host/names/group_catalog.h"
#include "host/store/counters.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

constexpr std::int64_t kFirst = 1'700'006'400;

class StoreStrangers : public testing::Test {
 protected:
  StoreStrangers() {
    options_.directory = fmt::format("{}/strangers.{}", testing::TempDir(), getpid());
    std::filesystem::remove_all(options_.directory);
  }
  ~StoreStrangers() override { std::filesystem::remove_all(options_.directory); }

  StoredMinute MinuteAt(int minute) {
    StoredMinute made;
    made.bucket = kFirst + minute * kMinuteSeconds;
    made.from = made.bucket;
    made.to = made.bucket + kMinuteSeconds;
    return made;
  }
  static ExporterHealth Exporter(std::uint32_t address, std::uint64_t records) {
    ExporterHealth health;
    health.row.key = {{IpAddress::Ipv4(address), 2055}, {false, 9}};
    health.row.counts.datagrams = 1;
    health.row.counts.books.metered = records;
    return health;
  }
  static std::int64_t LetGoOfTexts() {
    return static_cast<std::int64_t>(LetGoSoFar()[static_cast<std::size_t>(LetGo::kTexts)]);
  }
  std::int64_t Ask(const std::string& sql) {
    return Database::ToRead(CountersPath(options_.directory)).Ask(sql).value_or(-1);
  }

  GroupInfo group_ = *GroupCatalog({}).Find("protocols");
  StoreOptions options_;
};

TEST_F(StoreStrangers, LeaveRoomForExportersWithRecords) {
  constexpr std::int64_t kMost = ExporterRows::kMostStrangers;
  const std::int64_t before = LetGoOfTexts();
  for (int run = 0; run < 2; ++run) {  // a table that is there already counts
    Counters counters(options_, std::span(&group_, 1));
    StoredMinute minute = MinuteAt(run);
    for (std::uint32_t i = 0; i < kMost + 1000; ++i) {
      minute.exporters.push_back(Exporter(static_cast<std::uint32_t>(run + 1) << 24 | i, 0));
    }
    minute.exporters.push_back(Exporter(static_cast<std::uint32_t>(run), 7));
    counters.Write(minute);
  }
  EXPECT_EQ(Ask("SELECT count(*) FROM exporters"), kMost + 3);  // and those without a name
  const auto last = fmt::format("FROM health_minute WHERE bucket = {}", kFirst + 60);
  EXPECT_EQ(Ask("SELECT count(*) " + last), 2);
  EXPECT_EQ(Ask("SELECT sum(datagrams) " + last), kMost + 1001);
  EXPECT_EQ(Ask("SELECT records " + last + " AND exporter = '0.0.0.1'"), 7);
  EXPECT_EQ(LetGoOfTexts() - before, kMost + 2000);
}

TEST_F(StoreStrangers, SayNoMoreThanThereIsRoomFor) {
  constexpr std::int64_t kMost = NoteRows::kMostRows;
  const auto name = [&](std::string key, std::string text) {
    return KeyNote{KeyNote::Kind::kName, group_.id, std::move(key), "", std::move(text), ""};
  };
  Counters counters(options_, std::span(&group_, 1));
  StoredMinute minute = MinuteAt(0);
  const std::uint64_t values[] = {1, 1};
  minute.counts.Of(group_).Add("6", values);
  minute.notes.push_back(name("6", "tcp"));
  for (std::int64_t i = 1; i < kMost; ++i) minute.notes.push_back(name(fmt::format("x{}", i), "x"));
  counters.Write(minute);
  minute = MinuteAt(60);  // the hour before has its rows with this one
  minute.notes = {name("6", "TCP"), name("new", "x")};
  counters.Write(minute);
  EXPECT_EQ(Ask("SELECT count(*) FROM names"), kMost);
  EXPECT_EQ(Ask("SELECT count(*) FROM names WHERE name = 'TCP'"), 1);
  counters.DropOld(minute.bucket);
  EXPECT_EQ(Ask("SELECT count(*) FROM names"), 1);
  minute = MinuteAt(61);
  minute.notes = {name("new", "x")};
  counters.Write(minute);
  EXPECT_EQ(Ask("SELECT count(*) FROM names"), 2);
}

}  // namespace
}  // namespace flow::host
