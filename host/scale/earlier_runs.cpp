// SPDX-License-Identifier: Apache-2.0
#include "host/scale/earlier_runs.h"

#include <fmt/format.h>

#include <charconv>
#include <string_view>
#include <vector>

#include "host/base/error.h"
#include "host/scale/clickhouse_schema.h"
#include "host/store/exporter_rows.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

std::int64_t NumberFrom(std::string_view text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

struct EarlierRun {
  std::string run;
  std::int64_t alive = 0;
  bool has_ended = false;
};

std::vector<EarlierRun> RunsOf(ClickHouseClient* client, const Sending& sending) {
  const std::string answer = client->Ask(
      fmt::format("SELECT run, alive, ended > 0 FROM raw_runs FINAL WHERE collector = {} AND run "
                  "!= {} ORDER BY alive FORMAT TabSeparated",
                  SqlText(sending.collector), sending.run));
  std::string_view rest = answer;
  std::vector<EarlierRun> runs;
  TabRow row;
  while (TakeTabRow(&rest, &row)) {
    if (row.size() == 3) runs.push_back({std::string(row[0]), NumberFrom(row[1]), row[2] == "1"});
  }
  return runs;
}

// Of a run's spans of a tier, those that it has minutes of and no row.
struct Repair {
  std::string_view tier;
  std::int64_t seconds;
  std::string run;  // a condition: collector and run

  [[nodiscard]] std::string Span() const {
    return fmt::format("intDiv(m_bucket, {0}) * {0}", seconds);
  }
  [[nodiscard]] std::string IsMissing() const {
    return fmt::format(
        "toUInt32(intDiv(bucket, {}) * {}) NOT IN (SELECT bucket FROM raw_buckets WHERE {} AND "
        "tier = '{}')",
        seconds, seconds, run, tier);
  }
};

void RepairCounters(ClickHouseClient* client, const Repair& repair) {
  client->Execute(fmt::format(
      "INSERT INTO raw_counters_{} (group_id, bucket, collector, run, part, key, keys, bound, "
      "bytes, packets, more, block) SELECT group_id, toUInt32({}) AS span, collector, run, "
      "toUInt32(1), key, if(key = '{}', sum(m_keys), toUInt64(1)), sum(m_bound), sum(m_bytes), "
      "sum(m_packets), sumForEach(m_more), toUInt32(0) FROM (SELECT group_id, bucket AS m_bucket, "
      "collector, run, key, keys AS m_keys, bound AS m_bound, bytes AS m_bytes, packets AS "
      "m_packets, more AS m_more FROM raw_counters_minute FINAL WHERE {} AND {}) GROUP BY "
      "group_id, "
      "span, collector, run, key",
      repair.tier, repair.Span(), kOthersKey, repair.run, repair.IsMissing()));
}

void RepairHealth(ClickHouseClient* client, const Repair& repair) {
  std::string names;
  std::string inner;
  std::string sums;
  for (const HealthColumn& column : HealthColumns()) {
    names += fmt::format(", {}", column.name);
    inner += fmt::format(", {0} AS m_{0}", column.name);
    sums += fmt::format(", {}(m_{})", column.sum == HealthSum::kAdds ? "sum" : "max", column.name);
  }
  client->Execute(fmt::format(
      "INSERT INTO raw_health (tier, bucket, collector, run, part, exporter, port, version, "
      "lost_unit{}) SELECT '{}', toUInt32({}) AS span, collector, run, toUInt32(1), exporter, "
      "port, version, max(m_unit){} FROM (SELECT bucket AS m_bucket, collector, run, exporter, "
      "port, version, lost_unit AS m_unit{} FROM raw_health FINAL WHERE tier = 'minute' AND {} AND "
      "{}) GROUP BY span, collector, run, exporter, port, version",
      names, repair.tier, repair.Span(), sums, inner, repair.run, repair.IsMissing()));
  client->Execute(fmt::format(
      "INSERT INTO raw_losses (tier, bucket, collector, run, part, exporter, port, version, place, "
      "reason, count, unit) SELECT '{}', toUInt32({}) AS span, collector, run, toUInt32(1), "
      "exporter, port, version, place, reason, sum(m_count), any(m_unit) FROM (SELECT bucket AS "
      "m_bucket, collector, run, exporter, port, version, place, reason, count AS m_count, unit AS "
      "m_unit FROM raw_losses FINAL WHERE tier = 'minute' AND {} AND {}) GROUP BY span, collector, "
      "run, exporter, port, version, place, reason",
      repair.tier, repair.Span(), repair.run, repair.IsMissing()));
}

// Last: by these rows it is known what is missing.
void RepairBuckets(ClickHouseClient* client, const Repair& repair) {
  client->Execute(fmt::format(
      "INSERT INTO raw_buckets (tier, bucket, collector, run, part, seconds, ran, datagrams, "
      "records, bytes, packets, flows, flows_not_kept) SELECT '{0}', toUInt32({1}) AS span, "
      "collector, run, toUInt32(1), toUInt32({2}), toUInt32(least(sum(m_ran), {2})), sum(m_1), "
      "sum(m_2), sum(m_3), sum(m_4), sum(m_5), sum(m_6) FROM (SELECT bucket AS m_bucket, "
      "collector, "
      "run, ran AS m_ran, datagrams AS m_1, records AS m_2, bytes AS m_3, packets AS m_4, flows AS "
      "m_5, flows_not_kept AS m_6 FROM raw_buckets FINAL WHERE tier = 'minute' AND {3} AND {4}) "
      "GROUP BY span, collector, run",
      repair.tier, repair.Span(), repair.seconds, repair.run, repair.IsMissing()));
}

void EndRun(ClickHouseClient* client, const Sending& sending, const EarlierRun& run) {
  const std::string condition =
      fmt::format("collector = {} AND run = {}", SqlText(sending.collector), run.run);
  for (std::size_t tier = 1; tier < std::size(kTiers); ++tier) {
    const Repair repair{kTiers[tier].name, kTiers[tier].seconds, condition};
    RepairCounters(client, repair);
    RepairHealth(client, repair);
    RepairBuckets(client, repair);
  }
  client->Execute(fmt::format(
      "INSERT INTO raw_runs (collector, run, started, alive, ended, how, program, written) SELECT "
      "collector, run, started, alive, alive, 'killed', program, written + 1 FROM raw_runs FINAL "
      "WHERE {}",
      condition));
}

}  // namespace

std::set<std::string> CheckTables(ClickHouseClient* client) {
  const std::string answer = client->Ask(
      "SELECT name FROM system.tables WHERE database = currentDatabase() FORMAT TabSeparated");
  std::set<std::string> names;
  TabRow row;
  for (std::string_view rest = answer; TakeTabRow(&rest, &row);) names.insert(TabText(row[0]));
  for (const RawTable& table : RawTables()) {
    if (!names.contains(std::string(table.name))) {
      throw HostError(fmt::format(
          "ClickHouse at {} has no table {}; flowhost clickhouse-schema prints what makes them",
          client->server().Text(), table.name));
    }
  }
  return names;
}

RunState StateOfRun(ClickHouseClient* client, const Sending& sending, const std::string& program) {
  const std::string answer = client->Ask(
      fmt::format("SELECT count(), max(ended), any(program) = {} FROM raw_runs WHERE collector = "
                  "{} AND run = {} FORMAT TabSeparated",
                  SqlText(program), SqlText(sending.collector), sending.run));
  std::string_view rest = answer;
  TabRow row;
  if (!TakeTabRow(&rest, &row) || row.size() != 3 || row[0] == "0") return RunState::kNone;
  if (row[1] != "0") return RunState::kEnded;
  return row[2] == "1" ? RunState::kPartly : RunState::kOther;
}

void BeginRun(ClickHouseClient* client, const Sending& sending, const std::string& program) {
  client->Execute(fmt::format("INSERT INTO raw_runs (collector, run, program) VALUES ({}, {}, {})",
                              SqlText(sending.collector), sending.run, SqlText(program)));
}

std::string PartlyThere(const Sending& sending) {
  return fmt::format(
      "ClickHouse has these captures in part, from a replay that ended early and cannot be gone on "
      "with: it had several instances, or other settings. Take it out of each raw table first: "
      "ALTER TABLE ... DELETE WHERE collector = {} AND run = {}",
      SqlText(sending.collector), sending.run);
}

void EndEarlierRuns(ClickHouseClient* client, const Sending& sending) {
  const std::vector<EarlierRun> runs = RunsOf(client, sending);
  for (const EarlierRun& run : runs) {
    if (!run.has_ended) EndRun(client, sending, run);
  }
  const auto started = static_cast<std::int64_t>(sending.run / kMicrosPerSecond);
  if (runs.empty() || runs.back().alive >= started) return;
  client->Execute(fmt::format(
      "INSERT INTO raw_gaps (collector, started, ended, reason) VALUES ({}, {}, {}, '{}')",
      SqlText(sending.collector), runs.back().alive, started,
      runs.back().has_ended ? "not running" : "killed"));
}

}  // namespace flow::host
