// SPDX-License-Identifier: Apache-2.0
// Which rows of a store are one flow.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/ask/filter.h"
#include "host/ask/whole_flows.h"
#include "host/base/memory_budget.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

constexpr std::int64_t kHour = 1'700'002'800;

// A row: times in seconds from the hour on, and what it has in common with others.
struct Row {
  int hour = 0;
  double first;
  double last;
  int bytes = 1;
  const char* ends = "src=x'0A000001', dst=x'0A000002', sport=50000, dport=443, in_if=1, out_if=2";
  const char* more = "proto=6, exporter=1";
};
constexpr char kTurned[] =
    "src=x'0A000002', dst=x'0A000001', sport=443, dport=50000, in_if=2, out_if=1";

// Flows in the order of their beginnings: "first-last:bytes", in seconds.
class Noter : public WholeFlowTaker {
 public:
  void Take(const FlowAmounts& whole, std::span<const FlowPart> parts) override {
    const auto seconds = [](std::uint64_t ms) {
      return (static_cast<double>(ms) - 1000.0 * kHour) / 1000;
    };
    flows.push_back({whole.first, fmt::format("{}-{}:{} of {}", seconds(whole.first),
                                              seconds(whole.last), whole.bytes, parts.size())});
  }
  std::vector<std::pair<std::uint64_t, std::string>> flows;
};

class WholeFlows : public testing::Test {
 protected:
  WholeFlows() { std::filesystem::create_directories(FlowDirectory(directory_)); }
  ~WholeFlows() override { std::filesystem::remove_all(directory_); }

  void Write(const std::vector<Row>& rows) const {
    for (int hour = 0; hour < 2; ++hour) {
      const std::string path = FlowFilePath(directory_, kHour + hour * kHourSeconds);
      std::filesystem::remove(path);
      Database file = Database::ToWrite(path);
      CreateFlowFile(&file, kHour + hour * kHourSeconds);
      file.Execute(
          "INSERT INTO exporters VALUES (1, x'C0000201', '192.0.2.1'), "
          "(2, x'C0000202', '192.0.2.2')");
      for (const Row& row : rows) {
        if (row.hour != hour) continue;
        const auto ms = [&](double time) { return (time - 3600.0 * hour) * 1000; };
        file.Execute(fmt::format(
            "INSERT INTO flows (minute, first, last, bytes, packets, bytes_rev, packets_rev, "
            "records) VALUES (0, {}, {}, {}, 1, 0, 0, 1); UPDATE flows SET {}, {} WHERE rowid = "
            "last_insert_rowid()",
            ms(row.first), ms(row.last), row.bytes, row.ends, row.more));
      }
      file.CloseWritten();
    }
  }

  [[nodiscard]] std::string Join(bool has_directions, const std::string& filter = "") const {
    Noter takers[2];
    JoinFlows(directory_, ParseFilter(filter), {kHour, kHour + 2 * kHourSeconds}, has_directions,
              {&takers[0], &takers[1]});
    auto flows = takers[0].flows;
    flows.insert(flows.end(), takers[1].flows.begin(), takers[1].flows.end());
    std::ranges::sort(flows);
    std::string text;
    for (const auto& [first, flow] : flows) text += (text.empty() ? "" : ", ") + flow;
    return text;
  }

  std::string directory_ = fmt::format("{}/whole_flows.{}", testing::TempDir(), getpid());
};

TEST_F(WholeFlows, AreRowsWithLittleTimeBetweenThem) {
  struct Case {
    const char* what;
    std::vector<Row> rows;
    const char* flows;
    bool has_directions = false;
  };
  const Case cases[] = {
      {"five minutes of silence", {{0, 0, 10}, {0, 310, 320, 2}}, "0-320:3 of 2"},
      {"more than five", {{0, 0, 10}, {0, 310.001, 320, 2}}, "0-10:1 of 1, 310.001-320:2 of 1"},
      {"from the end of the longest on", {{0, 0, 600}, {0, 5, 10}, {0, 900, 910}}, "0-910:3 of 3"},
      {"a port used again, and again",
       {{0, 0, 1}, {0, 400, 401}, {0, 500, 501}, {0, 900, 901}},
       "0-1:1 of 1, 400-501:2 of 2, 900-901:1 of 1"},
      {"in any order, over the edge of a file",
       {{1, 3700, 3710}, {0, 3590, 3595}, {1, 3595, 3601}},
       "3590-3710:3 of 3"},
      {"turned", {{0, 0, 1}, {0, 60, 61, 1, kTurned}}, "0-61:2 of 2"},
      {"turned, where ways are told apart",
       {{0, 0, 1}, {0, 60, 61, 1, kTurned}},
       "0-1:1 of 1, 60-61:1 of 1",
       true},
      {"another exporter, and another protocol",
       {{0, 0, 1},
        {0, 2, 3, 1, Row{}.ends, "proto=6, exporter=2"},
        {0, 4, 5, 1, Row{}.ends, "proto=17, exporter=1"}},
       "0-1:1 of 1, 2-3:1 of 1, 4-5:1 of 1"},
      {"another interface",
       {{0, 0, 1},
        {0, 2, 3, 1,
         "src=x'0A000001', dst=x'0A000002', sport=50000, dport=443, in_if=3, out_if=2"}},
       "0-1:1 of 1, 2-3:1 of 1"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    Write(each.rows);
    EXPECT_EQ(Join(each.has_directions), each.flows);
  }
}

// Whether parts have little does not matter where all of a flow have much.
TEST_F(WholeFlows, PassWithWhatAllPartsHave) {
  constexpr char kOther[] =
      "src=x'0A000001', dst=x'0A000003', sport=50000, dport=443, in_if=1, out_if=2";
  Write({{0, 0, 1, 5}, {0, 60, 61, 4, kTurned}, {0, 2, 3, 8, kOther}, {1, 3700, 3701, 9, kOther}});
  const std::pair<const char*, const char*> cases[] = {
      {"bytes >= 9", "0-61:9 of 2, 3700-3701:9 of 1"},
      {"bytes > 9", ""},
      {"bytes 8 or bytes > 9", "2-3:8 of 1"},
      {"packets > 1 and bytes > 1", "0-61:9 of 2"},
      {"packets < 2 and bytes > 8", "3700-3701:9 of 1"},
      {"port 443 and bytes > 8", "0-61:9 of 2, 3700-3701:9 of 1"},
  };
  for (const auto& [filter, flows] : cases) EXPECT_EQ(Join(false, filter), flows) << filter;
  EXPECT_EQ(Join(true, "src host 10.0.0.1 and bytes > 4"),
            "0-1:5 of 1, 2-3:8 of 1, 3700-3701:9 of 1");
}

// Where few rows can be held at a time files are read again; some time that is no longer worth it.
TEST_F(WholeFlows, AreJoinedInLittleMemory) {
  Write({});
  Database file = Database::ToWrite(FlowFilePath(directory_, kHour));
  ShareMemory(kLeastMemory, 1);
  const auto add = [&](int flows) {
    file.Execute(fmt::format(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < {} - 1) "
        "INSERT INTO flows (minute, first, last, src, dst, sport, dport, proto, bytes, packets, "
        "bytes_rev, packets_rev, records, exporter) SELECT p * 2, p * 120000, p * 120000 + 1, "
        "x'0A000001', x'0A000002', i, 443, 6, 10 + p, 1, 0, 0, 1, 1 FROM n, (SELECT 0 AS p UNION "
        "ALL SELECT 1)",
        flows));
  };
  const auto join = [&](std::size_t* flows) {
    Noter takers[2];
    const ScanResult result =
        JoinFlows(directory_, {}, {kHour, kHour + kHourSeconds}, false, {&takers[0], &takers[1]});
    *flows = 0;
    for (const Noter& taker : takers) {
      *flows += static_cast<std::size_t>(std::ranges::count(
          taker.flows, "0-120.001:21 of 2", &std::pair<std::uint64_t, std::string>::second));
    }
    return result.rows_alone;
  };
  std::size_t flows = 0;
  add(80'000);
  EXPECT_FALSE(join(&flows));
  EXPECT_EQ(flows, 80'000);
  add(80'000);
  EXPECT_TRUE(join(&flows));
}

// Files that grow old are deleted, whoever is at it.
TEST_F(WholeFlows, OfAFileThatGoesMeanwhileAreMissing) {
  class Remover : public FlowTaker {
   public:
    explicit Remover(std::string path) : path_(std::move(path)) {}
    void Take(const FlowRow& /*row*/) override {
      ++taken;
      std::filesystem::remove(path_);
    }
    int taken = 0;

   private:
    std::string path_;
  };
  Write({{0, 0, 1}, {1, 3700, 3710}});
  const std::int64_t next = kHour + kHourSeconds;
  Remover remover(FlowFilePath(directory_, next));
  const ScanQuestion question{{}, {kHour, next + kHourSeconds}, false, {"{bytes}", "{packets}"}};
  const ScanResult result = ScanRows(directory_, question, {&remover});
  EXPECT_EQ(remover.taken, 1);
  ASSERT_EQ(result.missing.size(), 1);
  EXPECT_EQ(result.missing[0].from, next);
}

}  // namespace
}  // namespace flow::host
