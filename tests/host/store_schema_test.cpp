// SPDX-License-Identifier: Apache-2.0
// The store's databases as those find them who know no more than their tables.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "host/base/error.h"
#include "host/store/schema.h"
#include "tests/host/made_store.h"

namespace flow::host {
namespace {

class StoreSchema : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    // ctest runs every test in a process of its own, several at once.
    directory_ = testing::TempDir() + "/made_store." + std::to_string(getpid());
    WriteMadeStore(made_, directory_);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(directory_); }

  static std::int64_t Counters(const std::string& sql) {
    return Database::ToRead(CountersPath(directory_)).Ask(sql).value_or(-1);
  }

  inline static MadeStore made_{.kept_keys = 20};
  inline static std::string directory_;
};

TEST_F(StoreSchema, EveryGroupAddsUpToItsTotal) {
  std::map<std::string, std::int64_t> truth;
  ForEachFlow(made_, [&](const MadeFlow& flow) {
    const auto bytes = static_cast<std::int64_t>(flow.bytes + flow.bytes_back);
    truth["applications"] += bytes;
    truth["as_numbers"] += 2 * bytes;
    truth["flowintfs"] += 2 * bytes;
  });
  for (const auto& [group, bytes] : truth) {
    for (const Tier& tier : kTiers) {
      const std::string table = TierTable(group, tier);
      EXPECT_EQ(Counters("SELECT sum(bytes) FROM " + table), tier.name == "day" ? 0 : bytes)
          << table;
    }
  }
}

TEST_F(StoreSchema, FlowListReadsAsPeopleDo) {
  std::int64_t rows = 0;
  std::map<std::string, std::int64_t> truth;
  ForEachFlow(made_, [&](const MadeFlow& flow) {
    if (flow.bucket >= made_.start + kHourSeconds) return;
    ++rows;
    if (flow.source_port == kMadeLongPort) return;  // stored either way round
    const IpAddress source = MadeHost(made_, flow.source);
    if (source.family() == Family::kIpv4) {
      truth[source.Text()] += static_cast<std::int64_t>(flow.bytes);
    }
  });
  Database flows = Database::ToRead(FlowFilePath(directory_, made_.start));
  EXPECT_EQ(flows.Ask("SELECT count(*) FROM flow_list"), rows);
  std::map<std::string, std::int64_t> found;
  Statement sums = flows.Prepare(fmt::format(
      "SELECT src, sum(bytes) FROM flow_list WHERE src NOT LIKE '%:%' AND {} NOT IN (sport, dport) "
      "GROUP BY src",
      kMadeLongPort));
  while (sums.Step()) found[std::string(sums.Text(0))] = sums.Integer(1);
  EXPECT_EQ(found, truth);
  EXPECT_EQ(flows.Ask("SELECT sum(last_row - first_row + 1) FROM minutes"), rows);
}

TEST_F(StoreSchema, LaterVersionsAndForeignDatabasesAreLeftAlone) {
  const std::string path = directory_ + "/other.sqlite";
  const auto refuses = [&](const std::string& sql) {
    std::filesystem::remove(path);
    Database database = Database::ToWrite(path);
    database.Execute(sql);
    EXPECT_THROW(CreateCounters(&database, MadeGroups()), HostError) << sql;
  };
  refuses("CREATE TABLE photos (name)");
  refuses("PRAGMA application_id=1179407188; PRAGMA user_version=2; CREATE TABLE meta (name)");
}

}  // namespace
}  // namespace flow::host
