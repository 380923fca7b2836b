// SPDX-License-Identifier: Apache-2.0
#include "host/store/schema.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include "host/base/error.h"

namespace flow::host {
namespace {

constexpr char kCounterTables[] = R"(
CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS tiers (
  tier TEXT PRIMARY KEY, seconds INTEGER, keep_seconds INTEGER, kept_keys INTEGER) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS groups (
  group_id TEXT PRIMARY KEY, place INTEGER, title TEXT, key_title TEXT, key_kind TEXT)
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS meters (
  group_id TEXT, place INTEGER, name TEXT, title TEXT, unit TEXT, PRIMARY KEY (group_id, place))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS buckets (
  tier TEXT, bucket INTEGER, seconds INTEGER, ran INTEGER, rebuilt INTEGER, datagrams INTEGER,
  records INTEGER, bytes INTEGER, packets INTEGER, flows INTEGER, flows_not_kept INTEGER,
  PRIMARY KEY (tier, bucket)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS runs (
  run INTEGER PRIMARY KEY, started INTEGER, alive INTEGER, ended INTEGER, how TEXT, program TEXT);
CREATE TABLE IF NOT EXISTS gaps (
  started INTEGER, ended INTEGER, reason TEXT, PRIMARY KEY (started, reason)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS exporters (
  exporter TEXT, port INTEGER, version TEXT, first_seen INTEGER, last_seen INTEGER,
  templates INTEGER, sampling_rate INTEGER, clock_offset_ms INTEGER,
  PRIMARY KEY (exporter, port, version)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS labels (
  group_id TEXT, key TEXT, label TEXT, description TEXT, PRIMARY KEY (group_id, key))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS properties (
  group_id TEXT, key TEXT, name TEXT, value TEXT, PRIMARY KEY (group_id, key, name))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS names (
  group_id TEXT, key TEXT, name TEXT, PRIMARY KEY (group_id, key)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS flow_files (
  hour INTEGER PRIMARY KEY, file TEXT, rows INTEGER, bytes INTEGER, whole INTEGER);
)";

// Once a tier, whose name takes the place of {0}.
constexpr char kTierTables[] = R"(
CREATE TABLE IF NOT EXISTS health_{0} (
  bucket INTEGER, exporter TEXT, port INTEGER, version TEXT, datagrams INTEGER, bytes INTEGER,
  described INTEGER, reverse INTEGER, records INTEGER, left_out INTEGER, refused INTEGER,
  templates INTEGER, sets_without_template INTEGER, broken_sets INTEGER, lost INTEGER,
  lost_unit TEXT, lost_samples INTEGER, lost_here INTEGER, dropped INTEGER, gaps INTEGER,
  late INTEGER, restarts INTEGER, jumps INTEGER, last_seen INTEGER, sampling_rate INTEGER,
  clock_offset_ms INTEGER, PRIMARY KEY (bucket, exporter, port, version)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS losses_{0} (
  bucket INTEGER, exporter TEXT, port INTEGER, version TEXT, place TEXT, reason TEXT,
  count INTEGER, unit TEXT, PRIMARY KEY (bucket, exporter, port, version, place, reason))
  WITHOUT ROWID;
)";

// For tools that draw and for people; everything is in the tables.
constexpr char kCounterViews[] = R"(
CREATE VIEW IF NOT EXISTS losses AS
  SELECT 'minute' AS tier, datetime(bucket, 'unixepoch') AS time, * FROM losses_minute UNION ALL
  SELECT 'hour', datetime(bucket, 'unixepoch'), * FROM losses_hour UNION ALL
  SELECT 'day', datetime(bucket, 'unixepoch'), * FROM losses_day;
CREATE VIEW IF NOT EXISTS health AS
  SELECT 'minute' AS tier, datetime(bucket, 'unixepoch') AS time, * FROM health_minute UNION ALL
  SELECT 'hour', datetime(bucket, 'unixepoch'), * FROM health_hour UNION ALL
  SELECT 'day', datetime(bucket, 'unixepoch'), * FROM health_day;
CREATE VIEW IF NOT EXISTS traffic AS
  SELECT tier, bucket, datetime(bucket, 'unixepoch') AS time, ran, bytes, packets, records, flows,
         bytes * 8.0 / nullif(ran, 0) AS bits_per_second FROM buckets;
CREATE VIEW IF NOT EXISTS not_covered AS
  SELECT tier, bucket, datetime(bucket, 'unixepoch') AS time, seconds - ran AS seconds_missing
  FROM buckets WHERE ran < seconds;
CREATE VIEW IF NOT EXISTS silent AS
  SELECT exporter, port, version, datetime(last_seen, 'unixepoch') AS last_time,
         (SELECT max(alive) FROM runs) - last_seen AS seconds_silent FROM exporters
  WHERE seconds_silent >= 300;
)";

constexpr char kFlowTables[] = R"(
CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS minutes (
  minute INTEGER PRIMARY KEY, first_row INTEGER, last_row INTEGER, not_kept INTEGER,
  not_kept_bytes INTEGER, not_kept_packets INTEGER);
CREATE TABLE IF NOT EXISTS exporters (id INTEGER PRIMARY KEY, address BLOB, text TEXT);
CREATE TABLE IF NOT EXISTS texts (id INTEGER PRIMARY KEY, text TEXT);
CREATE TABLE IF NOT EXISTS flows (
  minute INTEGER, first INTEGER, last INTEGER, src BLOB, dst BLOB, sport INTEGER, dport INTEGER,
  proto INTEGER, bytes INTEGER, packets INTEGER, bytes_rev INTEGER, packets_rev INTEGER,
  records INTEGER, closed INTEGER, exporter INTEGER, in_if INTEGER, out_if INTEGER,
  src_as INTEGER, dst_as INTEGER, next_hop BLOB, bgp_next_hop BLOB, vrf INTEGER, app INTEGER,
  user INTEGER, tag INTEGER, src_mac BLOB, dst_mac BLOB);
)";

// A byte of a blob, the way SQL can get at it.
std::string ByteSql(std::string_view column, int at) {
  constexpr std::string_view kDigit = "instr('123456789ABCDEF', substr(hex({}), {}, 1))";
  return fmt::format("({} * 16 + {})", fmt::format(kDigit, column, at * 2 + 1),
                     fmt::format(kDigit, column, at * 2 + 2));
}

std::string AddressSql(std::string_view column) {
  std::string ipv4 = ByteSql(column, 0);
  for (int i = 1; i < 4; ++i) ipv4 += " || '.' || " + ByteSql(column, i);
  std::string ipv6 = fmt::format("substr(hex({}), 1, 4)", column);
  for (int i = 1; i < 8; ++i) {
    ipv6 += fmt::format(" || ':' || substr(hex({}), {}, 4)", column, i * 4 + 1);
  }
  return fmt::format("CASE length({}) WHEN 4 THEN {} WHEN 16 THEN lower({}) END", column, ipv4,
                     ipv6);
}

std::string MacSql(std::string_view column) {
  std::string mac = fmt::format("substr(hex({}), 1, 2)", column);
  for (int i = 1; i < 6; ++i) {
    mac += fmt::format(" || ':' || substr(hex({}), {}, 2)", column, i * 2 + 1);
  }
  return fmt::format("CASE WHEN {} IS NOT NULL THEN lower({}) END", column, mac);
}

std::string TextSql(std::string_view column) {
  return fmt::format("(SELECT text FROM texts WHERE id = f.{})", column);
}

// Flows as people read them: absolute times, addresses and texts.
std::string FlowView(std::int64_t hour) {
  const auto time = [hour](std::string_view column) {
    return fmt::format("{} + f.{}", hour * 1000, column);
  };
  return fmt::format(
      "CREATE VIEW IF NOT EXISTS flow_list AS SELECT {} + f.minute * 60 AS bucket, "
      "{} AS first_ms, {} AS last_ms, strftime('%Y-%m-%d %H:%M:%f', ({}) / 1000.0, 'unixepoch') "
      "AS first_time, f.last - f.first AS duration_ms, {} AS src, {} AS dst, f.sport, f.dport, "
      "f.proto, f.bytes, f.packets, f.bytes_rev, f.packets_rev, f.bytes + f.bytes_rev AS "
      "bytes_both, f.records, f.closed, (SELECT text FROM exporters WHERE id = f.exporter) AS "
      "exporter, f.in_if, f.out_if, f.src_as, f.dst_as, {} AS next_hop, {} AS bgp_next_hop, {} AS "
      "vrf, {} AS app, {} AS user, {} AS tag, {} AS src_mac, {} AS dst_mac FROM flows AS f",
      hour, time("first"), time("last"), time("first"), AddressSql("f.src"), AddressSql("f.dst"),
      AddressSql("f.next_hop"), AddressSql("f.bgp_next_hop"), TextSql("vrf"), TextSql("app"),
      TextSql("user"), TextSql("tag"), MacSql("f.src_mac"), MacSql("f.dst_mac"));
}

// By KeyKind.
constexpr std::string_view kKeyKinds[] = {
    "guess", "text",      "totals", "ipv4", "ipv6",         "interface", "session",  "port",
    "proto", "ethertype", "subnet", "as",   "as_interface", "vlan",      "mac_pair",
};
static_assert(std::size(kKeyKinds) == static_cast<std::size_t>(KeyKind::kMacPair) + 1);

void DescribeGroup(Database* database, const GroupInfo& group, int place) {
  database->Prepare("INSERT OR REPLACE INTO groups VALUES (?, ?, ?, ?, ?)")
      .Bind(1, group.id)
      .Bind(2, std::int64_t{place})
      .Bind(3, group.title)
      .Bind(4, group.key_title)
      .Bind(5, KeyKindName(group.key_kind))
      .Run();
  Statement meter = database->Prepare("INSERT OR REPLACE INTO meters VALUES (?, ?, ?, ?, ?)");
  for (std::size_t i = 0; i < group.meters.size(); ++i) {
    meter.Bind(1, group.id)
        .Bind(2, static_cast<std::int64_t>(i))
        .Bind(3, group.meters[i].id)
        .Bind(4, group.meters[i].title)
        .Bind(5, UnitName(group.meters[i].unit))
        .Run();
  }
}

// A database that was just made has neither of the two numbers.
void CheckVersion(Database* database) {
  const std::int64_t id = database->Ask("PRAGMA application_id").value_or(0);
  const std::int64_t version = database->Ask("PRAGMA user_version").value_or(0);
  const bool is_empty = database->Ask("SELECT count(*) FROM sqlite_schema").value_or(0) == 0;
  if (id != kStoreId && !is_empty) {
    throw HostError(fmt::format("{} is a database of another program", database->path()));
  }
  if (version > kStoreVersion) {
    throw HostError(
        fmt::format("{} was written by a later version of flowhost (format {}, known "
                    "here up to {})",
                    database->path(), version, kStoreVersion));
  }
  database->Execute(
      fmt::format("PRAGMA application_id={}; PRAGMA user_version={}", kStoreId, kStoreVersion));
}

// Stores that were made before have tables without it.
void AddClockOffset(Database* database, const std::string& table) {
  if (HasColumn(database, table, kClockOffset)) return;
  database->Execute(fmt::format("ALTER TABLE {} ADD COLUMN {} INTEGER", table, kClockOffset));
}

}  // namespace

bool HasColumn(Database* database, std::string_view table, std::string_view column) {
  return database->Prepare("SELECT 1 FROM pragma_table_info(?) WHERE name = ?")
      .Bind(1, table)
      .Bind(2, column)
      .Step();
}

std::string_view KeyKindName(KeyKind kind) { return kKeyKinds[static_cast<std::size_t>(kind)]; }

std::string_view UnitName(Unit unit) {
  switch (unit) {
    case Unit::kBytes:
      return "bytes";
    case Unit::kPackets:
      return "packets";
    default:
      return "count";
  }
}

void PutMeta(Database* database, std::string_view name, std::int64_t value) {
  database->Prepare("INSERT OR REPLACE INTO meta VALUES (?, ?)").Bind(1, name).Bind(2, value).Run();
}

std::vector<ValueColumn> ValueColumns(const GroupInfo& group) {
  std::vector<ValueColumn> columns{{"bytes", {}}, {"packets", {}}};
  const auto counts_bytes = [&](int index) {
    return std::ranges::any_of(group.meters, [&](const MeterInfo& meter) {
      return meter.index == index && meter.unit == Unit::kBytes;
    });
  };
  if (std::ranges::all_of(group.ranking, counts_bytes)) columns[0].meters = group.ranking;
  for (const MeterInfo& meter : group.meters) {
    const std::vector<int> index{meter.index};
    if (meter.id == "packets") {
      columns[1].meters = index;
    } else if (meter.id != "bytes" && columns[0].meters != index) {
      columns.push_back({meter.id, index});
    }
  }
  return columns;
}

std::string TierTable(std::string_view name, const Tier& tier) {
  return fmt::format("{}_{}", name, tier.name);
}

std::string CountersPath(const std::string& directory) { return directory + "/counters.sqlite"; }
std::string FlowDirectory(const std::string& directory) { return directory + "/flows"; }

std::string FlowFilePath(const std::string& directory, std::int64_t hour) {
  return fmt::format("{}/{:%Y-%m-%dT%H}.sqlite", FlowDirectory(directory),
                     fmt::gmtime(static_cast<std::time_t>(hour)));
}

void CreateCounters(Database* database, std::span<const GroupInfo> groups) {
  CheckVersion(database);
  database->Begin();
  database->Execute(kCounterTables);
  AddClockOffset(database, "exporters");
  Statement put_tier = database->Prepare("INSERT OR REPLACE INTO tiers VALUES (?, ?, ?, ?)");
  for (const Tier& tier : kTiers) {
    database->Execute(fmt::format(kTierTables, tier.name));
    AddClockOffset(database, TierTable("health", tier));
    put_tier.Bind(1, tier.name)
        .Bind(2, tier.seconds)
        .Bind(3, tier.keep_seconds)
        .Bind(4, std::uint64_t{tier.kept_keys})
        .Run();
  }
  database->Execute(kCounterViews);
  int place = 0;
  for (const GroupInfo& group : groups) {
    if (!HasTiers(group)) continue;
    DescribeGroup(database, group, ++place);
    CreateGroup(database, group);
  }
  PutMeta(database, "schema", kStoreVersion);
  database->Commit();
}

// A table of the group a tier, and a view of all of them under the group's id.
void CreateGroup(Database* database, const GroupInfo& group) {
  std::string columns = "bucket INTEGER, key TEXT, keys INTEGER, bound INTEGER";
  for (const ValueColumn& column : ValueColumns(group)) {
    columns += fmt::format(", {} INTEGER", Identifier(column.name));
  }
  std::string view;
  for (const Tier& tier : kTiers) {
    const std::string table = Identifier(TierTable(group.id, tier));
    database->Execute(
        fmt::format("CREATE TABLE IF NOT EXISTS {} ({}, PRIMARY KEY (bucket, key)) WITHOUT ROWID",
                    table, columns));
    view += fmt::format("{}SELECT '{}' AS tier, datetime(bucket, 'unixepoch') AS time, * FROM {}",
                        view.empty() ? "" : " UNION ALL ", tier.name, table);
  }
  database->Execute(fmt::format("CREATE VIEW IF NOT EXISTS {} AS {}", Identifier(group.id), view));
}

void CreateFlowFile(Database* database, std::int64_t hour) {
  CheckVersion(database);
  database->Begin();
  database->Execute(kFlowTables);
  database->Execute(FlowView(hour));
  PutMeta(database, "schema", kStoreVersion);
  PutMeta(database, "hour", hour);
  database->Commit();
}

}  // namespace flow::host
