// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_schema.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "host/scale/stream_sql.h"
#include "host/store/exporter_rows.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// Retention drops partitions: days where there is much, months where there is little.
constexpr std::string_view kByDay = "toYYYYMMDD(toDateTime(bucket, 'UTC'))";
constexpr std::string_view kByMonth = "toYYYYMM(toDateTime(bucket, 'UTC'))";
constexpr std::string_view kByTier = "(tier, toYYYYMM(toDateTime(bucket, 'UTC')))";

constexpr std::string_view kCounterColumns =
    "group_id String, bucket UInt32, collector String, run UInt64, part UInt32, key String, "
    "keys UInt64, bound UInt64, bytes UInt64, packets UInt64, more Array(UInt64), block UInt32";
constexpr std::string_view kCounterKey = "group_id, bucket, collector, run, part, key";

constexpr RawTable kTables[] = {
    {"raw_counters_minute", kCounterColumns, kByDay, kCounterKey, ""},
    {"raw_counters_hour", kCounterColumns, kByMonth, kCounterKey, ""},
    {"raw_counters_day", kCounterColumns, kByMonth, kCounterKey, ""},
    {"raw_flows",
     "bucket UInt32, collector String, run UInt64, block UInt32, row UInt32, first_ms Int64, "
     "last_ms Int64, src FixedString(16), dst FixedString(16), sport UInt16, dport UInt16, "
     "proto UInt8, bytes UInt64, packets UInt64, bytes_rev UInt64, packets_rev UInt64, "
     "records UInt32, closed UInt8, exporter FixedString(16), in_if UInt32, out_if UInt32, "
     "src_as UInt32, dst_as UInt32, next_hop FixedString(16), bgp_next_hop FixedString(16), "
     "vrf String, app String, user String, tag String, src_mac FixedString(6), "
     "dst_mac FixedString(6)",
     kByDay, "bucket, collector, run, block, row", ""},
    {"raw_buckets",
     "tier String, bucket UInt32, collector String, run UInt64, part UInt32, seconds UInt32, "
     "ran UInt32, datagrams UInt64, records UInt64, bytes UInt64, packets UInt64, flows UInt64, "
     "flows_not_kept UInt64",
     kByTier, "tier, bucket, collector, run, part", ""},
    {"raw_health",
     "tier String, bucket UInt32, collector String, run UInt64, part UInt32, exporter String, "
     "port UInt16, version String, lost_unit String, clock_offset_ms Nullable(Int64), "
     "datagrams UInt64, bytes UInt64, "
     "described UInt64, reverse UInt64, records UInt64, left_out UInt64, refused UInt64, "
     "templates UInt64, sets_without_template UInt64, broken_sets UInt64, lost UInt64, "
     "lost_samples UInt64, lost_here UInt64, dropped UInt64, gaps UInt64, late UInt64, "
     "restarts UInt64, jumps UInt64, last_seen UInt64, sampling_rate UInt64",
     kByTier, "tier, bucket, collector, run, part, exporter, port, version", ""},
    {"raw_losses",
     "tier String, bucket UInt32, collector String, run UInt64, part UInt32, exporter String, "
     "port UInt16, version String, place String, reason String, count UInt64, unit String",
     kByTier, "tier, bucket, collector, run, part, exporter, port, version, place, reason", ""},
    {"raw_streams",
     "bucket UInt32, collector String, run UInt64, part UInt32, exporter String, port UInt16, "
     "version String, unit String, stream UInt64, segment UInt32, first UInt32, next UInt32, "
     "came UInt64",
     kByDay, "bucket, collector, run, part, exporter, port, version, unit, stream, segment", ""},
    {"raw_runs",
     "collector String, run UInt64, started UInt32, alive UInt32, ended UInt32, how String, "
     "program String, written UInt64",
     "tuple()", "collector, run", "written"},
    {"raw_gaps", "collector String, started UInt32, ended UInt32, reason String", "tuple()",
     "collector, started, ended, reason", ""},
    {"raw_notes",
     "kind String, group_id String, key String, name String, value String, description String, "
     "told UInt32",
     "tuple()", "kind, group_id, key, name", "told"},
    {"raw_groups",
     "group_id String, place UInt32, title String, key_title String, key_kind String, told UInt32",
     "tuple()", "group_id", "told"},
    {"raw_meters",
     "group_id String, place UInt32, name String, title String, unit String, told UInt32",
     "tuple()", "group_id, place", "told"},
};

constexpr std::string_view kRaw = "raw_";

std::string SpreadName(std::string_view raw) {
  return fmt::format("all_{}", raw.substr(kRaw.size()));
}

std::string CreateTable(const RawTable& table) {
  return fmt::format(
      "CREATE TABLE IF NOT EXISTS {} (\n  {})\nENGINE = ReplacingMergeTree{}\nPARTITION BY {}\n"
      "ORDER BY ({});\n\n",
      table.name, table.columns, table.version.empty() ? "" : fmt::format("({})", table.version),
      table.partition, table.key);
}

// Bytes and packets have columns of their own, the others are elements of `more`.
bool IsOwnColumn(std::string_view name) { return name == "bytes" || name == "packets"; }

std::string CreateView(std::string_view name, std::string_view select) {
  return fmt::format("CREATE VIEW IF NOT EXISTS {} AS\n{};\n\n", name, select);
}

// Over the servers' tables. Nobody writes into it: a collector sends to one server, which then
// knows what it has of it.
std::string CreateSpread(std::string_view raw, const std::string& cluster) {
  return fmt::format(
      "CREATE TABLE IF NOT EXISTS {} AS {}\nENGINE = Distributed({}, currentDatabase(), {});\n\n",
      SpreadName(raw), raw, cluster, raw);
}

// What several collectors and runs have of a key, added up. The names inside differ from those
// outside: a name that is given to a sum means that sum everywhere. By grouping rather than FINAL:
// conditions on a view reach a table that is read with FINAL in no case.
std::string CounterView(const GroupInfo& group, std::string_view tier) {
  std::string sums;
  std::size_t place = 0;
  for (const ValueColumn& column : ValueColumns(group)) {
    const std::string name = Identifier(column.name);
    const bool is_own = IsOwnColumn(column.name);
    if (!is_own) ++place;
    if (column.meters.empty()) {
      sums += fmt::format(", CAST(NULL AS Nullable(UInt64)) AS {}", name);
    } else if (is_own) {
      sums += fmt::format(", sum(r_{0}) AS {0}", column.name);
    } else {
      sums += fmt::format(", sum(r_more[{}]) AS {}", place, name);
    }
  }
  return fmt::format(
      "SELECT bucket, key, if(key = '{}', sum(r_keys), 1) AS keys, sum(r_bound) AS bound{}\n"
      "FROM (SELECT bucket, key, max(keys) AS r_keys, max(bound) AS r_bound, max(bytes) AS "
      "r_bytes, "
      "max(packets) AS r_packets, maxForEach(more) AS r_more\n      FROM raw_counters_{} WHERE "
      "group_id = '{}' GROUP BY bucket, collector, run, part, key)\nGROUP BY bucket, key",
      kOthersKey, sums, tier, group.id);
}

std::string AllTiers(std::string_view name) {
  std::string select;
  for (const Tier& tier : kTiers) {
    select += fmt::format("{}SELECT '{}' AS tier, toDateTime(bucket, 'UTC') AS time, * FROM {}",
                          select.empty() ? "" : "\nUNION ALL ", tier.name, TierTable(name, tier));
  }
  return select;
}

std::string HealthSelect(std::string_view tier, std::string_view condition) {
  std::string inner =
      "bucket, exporter, port, version, lost_unit AS r_unit, clock_offset_ms AS r_clock";
  std::string outer =
      "bucket, exporter, port, version, max(r_unit) AS lost_unit, toInt64(round(avg(r_clock))) AS "
      "clock_offset_ms";
  for (const HealthColumn& column : HealthColumns()) {
    inner += fmt::format(", {0} AS r_{0}", column.name);
    outer += fmt::format(", {}(r_{}) AS {}", column.sum == HealthSum::kAdds ? "sum" : "max",
                         column.name, column.name);
  }
  return fmt::format(
      "SELECT {}\nFROM (SELECT {} FROM raw_health FINAL WHERE tier = '{}'{})\n"
      "GROUP BY bucket, exporter, port, version",
      outer, inner, tier, condition);
}

// What went between collectors, in the minutes behind it.
std::string LostBetween(std::string_view tier, std::string_view condition) {
  const Tier& span = *std::ranges::find(kTiers, tier, &Tier::name);
  return fmt::format(
      "SELECT toUInt32(intDiv(r_bucket, {0}) * {0}) AS bucket, exporter, port, version, 'way' AS "
      "place, 'collectors' AS reason, sum(r_between) AS count, unit\n"
      "FROM (SELECT bucket AS r_bucket, exporter, port, version, unit, between AS r_between\n"
      "      FROM ({1}))\nWHERE r_between > 0 GROUP BY bucket, exporter, port, version, unit",
      span.seconds, StreamLossesSql(condition));
}

std::string LossesSelect(std::string_view tier, std::string_view condition) {
  return fmt::format(
      "SELECT bucket, exporter, port, version, place, reason, sum(r_count) AS count, any(r_unit) "
      "AS unit\nFROM (SELECT bucket, exporter, port, version, place, reason, count AS r_count, "
      "unit AS r_unit\n      FROM raw_losses FINAL WHERE tier = '{}'{})\n"
      "GROUP BY bucket, exporter, port, version, place, reason\nUNION ALL {}",
      tier, condition, LostBetween(tier, condition));
}

// A bucket ran as long as the one collector did that ran shortest.
std::string BucketsSelect(std::string_view condition) {
  return fmt::format(
      "SELECT tier, bucket, max(c_seconds) AS seconds, min(c_ran) AS ran, toUInt8(0) AS rebuilt, "
      "sum(c_datagrams) AS datagrams, sum(c_records) AS records, sum(c_bytes) AS bytes, "
      "sum(c_packets) AS packets, sum(c_flows) AS flows, sum(c_not_kept) AS flows_not_kept\n"
      "FROM (SELECT tier, bucket, collector, max(seconds) AS c_seconds, least(sum(ran), "
      "max(seconds)) AS c_ran, sum(datagrams) AS c_datagrams, sum(records) AS c_records, "
      "sum(bytes) AS c_bytes, sum(packets) AS c_packets, sum(flows) AS c_flows, "
      "sum(flows_not_kept) AS c_not_kept\n      FROM raw_buckets FINAL WHERE 1{} GROUP BY tier, "
      "bucket, collector)\nGROUP BY tier, bucket",
      condition);
}

constexpr std::string_view kExporters =
    "SELECT exporter, port, version, min(bucket) AS first_seen, max(r_seen) AS last_seen, "
    "argMax(r_templates, r_seen) AS templates, nullIf(argMax(r_rate, r_seen), 0) AS "
    "sampling_rate, argMax(r_clock, r_seen) AS clock_offset_ms\nFROM (SELECT bucket, exporter, "
    "port, version, last_seen AS r_seen, templates AS r_templates, sampling_rate AS r_rate, "
    "clock_offset_ms AS r_clock\n      FROM raw_health FINAL WHERE tier = 'minute')\n"
    "GROUP BY exporter, port, version";

std::string AddressSql(std::string_view column) {
  return fmt::format("replaceRegexpOne(IPv6NumToString({}), '^::ffff:', '')", column);
}

// Nothing where an address is all zero.
std::string KnownAddressSql(std::string_view column) {
  return fmt::format("if({0} = toFixedString('', {1}), NULL, {2})", column, 16, AddressSql(column));
}

std::string MacSql(std::string_view column) {
  return fmt::format(
      "if({0} = toFixedString('', 6), NULL, lower(replaceRegexpOne(hex({0}), "
      "'(..)(..)(..)(..)(..)(..)', '\\\\1:\\\\2:\\\\3:\\\\4:\\\\5:\\\\6')))",
      column);
}

// Each row as it came, which is fast; with FINAL, each once in any case.
std::string FlowView(std::string_view final) {
  return fmt::format(
      "SELECT bucket, r_first AS first_ms, r_last AS last_ms, toDateTime(intDiv(r_first, 1000), "
      "'UTC') AS first_time, r_last - r_first AS duration_ms, {} AS src, {} AS dst, sport, dport, "
      "proto, bytes, packets, bytes_rev, packets_rev, bytes + bytes_rev AS bytes_both, records, "
      "closed, {} AS exporter, nullIf(r_in, 0) AS in_if, nullIf(r_out, 0) AS out_if, "
      "nullIf(r_src_as, 0) AS src_as, nullIf(r_dst_as, 0) AS dst_as, {} AS next_hop, {} AS "
      "bgp_next_hop, nullIf(r_vrf, '') AS vrf, nullIf(r_app, '') AS app, nullIf(r_user, '') AS "
      "user, nullIf(r_tag, '') AS tag, {} AS src_mac, {} AS dst_mac, collector\n"
      "FROM (SELECT bucket, collector, first_ms AS r_first, last_ms AS r_last, src AS r_src, dst "
      "AS r_dst, sport, dport, proto, bytes, packets, bytes_rev, packets_rev, records, closed, "
      "exporter AS r_exporter, in_if AS r_in, out_if AS r_out, src_as AS r_src_as, dst_as AS "
      "r_dst_as, next_hop AS r_hop, bgp_next_hop AS r_bgp_hop, vrf AS r_vrf, app AS r_app, user "
      "AS r_user, tag AS r_tag, src_mac AS r_src_mac, dst_mac AS r_dst_mac\n"
      "      FROM raw_flows{})",
      AddressSql("r_src"), AddressSql("r_dst"), KnownAddressSql("r_exporter"),
      KnownAddressSql("r_hop"), KnownAddressSql("r_bgp_hop"), MacSql("r_src_mac"),
      MacSql("r_dst_mac"), final);
}

struct View {
  std::string_view name;
  std::string_view select;
};
constexpr View kViews[] = {
    {"exporters", kExporters},
    {"gaps", "SELECT started, ended, reason, collector FROM raw_gaps FINAL"},
    {"runs",
     "SELECT run, started, alive, nullIf(ended, 0) AS ended_at, how, program, collector "
     "FROM raw_runs FINAL"},
    // Each server may have what collectors call things: the last one holds.
    {"groups",
     "SELECT group_id, argMax(place, told) AS place, argMax(title, told) AS title, "
     "argMax(key_title, told) AS key_title, argMax(key_kind, told) AS key_kind FROM raw_groups "
     "GROUP BY group_id"},
    {"meters",
     "SELECT group_id, place, argMax(name, told) AS name, argMax(title, told) AS title, "
     "argMax(unit, told) AS unit FROM raw_meters GROUP BY group_id, place"},
    {"labels",
     "SELECT group_id, key, argMax(value, told) AS label, argMax(description, told) AS description "
     "FROM raw_notes WHERE kind = 'label' GROUP BY group_id, key"},
    {"properties",
     "SELECT group_id, key, name, argMax(value, told) AS value FROM raw_notes WHERE kind = "
     "'property' GROUP BY group_id, key, name"},
    {"names",
     "SELECT group_id, key, argMax(value, told) AS name FROM raw_notes WHERE kind = 'name' GROUP "
     "BY "
     "group_id, key"},
    {"traffic",
     "SELECT tier, bucket, toDateTime(bucket, 'UTC') AS time, ran, bytes, packets, "
     "records, flows, if(ran = 0, NULL, bytes * 8 / ran) AS bits_per_second FROM "
     "buckets"},
    {"not_covered",
     "SELECT tier, bucket, toDateTime(bucket, 'UTC') AS time, seconds - ran AS "
     "seconds_missing FROM buckets WHERE ran < seconds"},
};

std::string Views(std::span<const GroupInfo> groups) {
  std::string views = CreateView("buckets", BucketsSelect(""));
  for (const View& view : kViews) views += CreateView(view.name, view.select);
  views += CreateView("stream_numbers", StreamNumbersSql(""));
  views += CreateView("stream_losses", StreamLossesSql(""));
  for (const Tier& tier : kTiers) {
    views += CreateView(TierTable("health", tier), HealthSelect(tier.name, ""));
    views += CreateView(TierTable("losses", tier), LossesSelect(tier.name, ""));
  }
  views += CreateView("health", AllTiers("health"));
  views += CreateView("losses", AllTiers("losses"));
  views += CreateView("flow_list", FlowView(""));
  views += CreateView("flow_list_exact", FlowView(" FINAL"));
  for (const GroupInfo& group : groups) {
    if (!HasTiers(group)) continue;
    for (const Tier& tier : kTiers) {
      views += CreateView(Identifier(TierTable(group.id, tier)), CounterView(group, tier.name));
    }
    views += CreateView(Identifier(group.id), AllTiers(group.id));
  }
  return views;
}

}  // namespace

std::span<const RawTable> RawTables() { return kTables; }

const RawTable* FindRawTable(std::string_view name) {
  const auto* const found = std::ranges::find(kTables, name, &RawTable::name);
  return found == std::end(kTables) ? nullptr : found;
}

// A column is its name, a blank and its type, which has neither blanks nor commas.
std::string InsertInto(const RawTable& table) {
  std::string names;
  std::string_view rest = table.columns;
  while (!rest.empty()) {
    const std::string_view column = rest.substr(0, rest.find(", "));
    rest.remove_prefix(std::min(column.size() + 2, rest.size()));
    names += fmt::format("{}{}", names.empty() ? "" : ", ", column.substr(0, column.find(' ')));
  }
  return fmt::format("INSERT INTO {} ({}) FORMAT RowBinary", table.name, names);
}

std::string Reads(std::string sql, bool is_spread) {
  constexpr std::string_view kFrom = "FROM raw_";
  constexpr std::string_view kFromSpread = "FROM all_";
  for (std::size_t at = sql.find(kFrom); is_spread && at != sql.npos; at = sql.find(kFrom, at)) {
    sql.replace(at, kFrom.size(), kFromSpread);
  }
  return sql;
}

std::string SpanOfView(std::string_view name, std::int64_t from, std::int64_t to) {
  const std::string condition = fmt::format(" AND bucket >= {} AND bucket < {}", from, to);
  if (name == "buckets") return BucketsSelect(condition);
  for (const Tier& tier : kTiers) {
    if (name == TierTable("health", tier)) return HealthSelect(tier.name, condition);
    if (name == TierTable("losses", tier)) return LossesSelect(tier.name, condition);
  }
  return fmt::format("SELECT * FROM {}", Identifier(name));
}

std::string SpanOfCounters(std::string_view group, std::span<const std::string> columns,
                           std::string_view tier, std::int64_t from, std::int64_t to) {
  std::string list;
  std::size_t place = 0;
  for (const std::string& column : columns) {
    if (IsOwnColumn(column)) continue;
    list += fmt::format(", more[{}] AS {}", ++place, Identifier(column));
  }
  return fmt::format(
      "SELECT bucket, key, keys, bound, bytes, packets{} FROM raw_counters_{} FINAL WHERE group_id "
      "= '{}' AND bucket >= {} AND bucket < {}",
      list, tier, group, from, to);
}

std::string ClickHouseSchema(std::span<const GroupInfo> groups, const std::string& cluster) {
  std::string schema;
  for (const RawTable& table : kTables) schema += CreateTable(table);
  for (const RawTable& table : kTables) {
    if (!cluster.empty()) schema += CreateSpread(table.name, cluster);
  }
  return schema + Reads(Views(groups), !cluster.empty());
}

}  // namespace flow::host
