// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "host/scale/clickhouse_schema.h"
#include "host/store/exporter_rows.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

constexpr std::string_view kFlowColumns =
    "collector String, run UInt64, number UInt64, minute UInt32, sampler_address String, "
    "time_flow_start_ns UInt64, time_flow_end_ns UInt64, time_received_ns UInt64, bytes UInt64, "
    "packets UInt64, etype UInt32, proto UInt8, src_addr String, dst_addr String, src_port UInt16, "
    "dst_port UInt16, in_if UInt32, out_if UInt32, src_as UInt32, dst_as UInt32, next_hop String, "
    "bgp_next_hop String, src_mac String, dst_mac String, vrf String, app String, user String, "
    "tag String";
constexpr std::string_view kSpanColumns =
    "kind String, collector String, run UInt64, number UInt64, tier String, bucket UInt32, "
    "part UInt32";
constexpr std::string_view kCounterColumns =
    "`group` String, key String, keys UInt64, bound UInt64, bytes UInt64, packets UInt64";
constexpr std::string_view kHealthColumns =
    "sampler_address String, port UInt16, version String, lost_unit String, place String, "
    "reason String, count UInt64, unit String, stream UInt64, segment UInt32, first UInt32, "
    "next UInt32, came UInt64, ran_seconds UInt64, packets UInt64, flows UInt64, "
    "flows_not_kept UInt64";

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

// Of the raw tables' form: IPv4 as IPv6 that stands for it, nothing as zeros.
std::string AddressSql(std::string_view column) {
  return fmt::format(
      "IPv6StringToNum(multiIf({0} = '', '::', position({0}, ':') = 0, concat('::ffff:', {0}), "
      "{0}))",
      column);
}

std::string MacSql(std::string_view column) {
  return fmt::format("toFixedString(unhex(replaceAll({}, ':', '')), 6)", column);
}

// A reader that dies reads again what it had not said that it has: rows with equal keys. One that
// reads nothing of a group reads it from the beginning.
std::string CreateReader(std::string_view name, std::string_view columns, std::string_view brokers,
                         std::string_view topic) {
  return fmt::format(
      "CREATE TABLE IF NOT EXISTS {} (\n  {})\nENGINE = Kafka SETTINGS kafka_broker_list = {}, "
      "kafka_topic_list = {}, kafka_group_name = {}, kafka_format = 'JSONEachRow';\n\n",
      name, columns, Quoted(brokers), Quoted(topic), Quoted(topic));
}

std::string CreateFeed(std::string_view table, std::string_view select) {
  return fmt::format("CREATE MATERIALIZED VIEW IF NOT EXISTS kafka_to_{0} TO {0} AS\n{1};\n\n",
                     table, select);
}

// A message has a direction of a flow, and its number is its name.
std::string FlowFeed() {
  return CreateFeed(
      "raw_flows",
      fmt::format(
          "SELECT minute AS bucket, collector, run, toUInt32(intDiv(number, 4294967296)) AS block, "
          "toUInt32(number) AS row, toInt64(intDiv(time_flow_start_ns, 1000000)) AS first_ms, "
          "toInt64(intDiv(time_flow_end_ns, 1000000)) AS last_ms, {} AS src, {} AS dst, src_port "
          "AS sport, dst_port AS dport, proto, bytes, packets, toUInt64(0) AS bytes_rev, "
          "toUInt64(0) AS packets_rev, toUInt32(0) AS records, toUInt8(0) AS closed, {} AS "
          "exporter, in_if, out_if, src_as, dst_as, {} AS next_hop, {} AS bgp_next_hop, vrf, app, "
          "user, tag, {} AS src_mac, {} AS dst_mac\nFROM kafka_flows",
          AddressSql("src_addr"), AddressSql("dst_addr"), AddressSql("sampler_address"),
          AddressSql("next_hop"), AddressSql("bgp_next_hop"), MacSql("src_mac"),
          MacSql("dst_mac")));
}

// What the groups have beside bytes and packets: members of their own in a message, an array in the
// raw tables.
struct GroupColumns {
  std::string all;   // with their types
  std::string more;  // the array, by group
};
GroupColumns ColumnsOf(std::span<const GroupInfo> groups) {
  GroupColumns found;
  std::vector<std::string> known;
  std::string cases;
  for (const GroupInfo& group : groups) {
    if (!HasTiers(group)) continue;
    std::string array;
    for (const ValueColumn& column : ValueColumns(group)) {
      if (column.name == "bytes" || column.name == "packets") continue;
      const std::string name = Identifier(column.name);
      array += fmt::format("{}{}", array.empty() ? "" : ", ", name);
      if (std::ranges::find(known, name) != known.end()) continue;
      known.push_back(name);
      found.all += fmt::format(", {} UInt64", name);
    }
    if (!array.empty()) cases += fmt::format("`group` = {}, [{}], ", Quoted(group.id), array);
  }
  found.more =
      cases.empty() ? "emptyArrayUInt64()" : fmt::format("multiIf({}emptyArrayUInt64())", cases);
  return found;
}

std::string CounterFeed(const Tier& tier, std::string_view more) {
  return CreateFeed(
      TierTable("raw_counters", tier),
      fmt::format("SELECT `group` AS group_id, bucket, collector, run, part, key, keys, bound, "
                  "bytes, packets, {} AS more, toUInt32(0) AS block\nFROM kafka_counters WHERE "
                  "tier = '{}'",
                  more, tier.name));
}

std::string HealthFeeds() {
  constexpr std::string_view kSource =
      "tier, bucket, collector, run, part, sampler_address AS exporter, port, version";
  std::string columns;
  for (const HealthColumn& column : HealthColumns()) columns += fmt::format(", {}", column.name);
  return CreateFeed("raw_buckets",
                    "SELECT tier, bucket, collector, run, part, multiIf(tier = 'minute', 60, tier "
                    "= 'hour', 3600, 86400) AS seconds, toUInt32(ran_seconds) AS ran, datagrams, "
                    "records, bytes, packets, flows, flows_not_kept\nFROM kafka_health WHERE kind "
                    "= 'bucket'") +
         CreateFeed("raw_health",
                    fmt::format("SELECT {}, lost_unit, CAST(NULL AS Nullable(Int64)) AS "
                                "clock_offset_ms{}\nFROM kafka_health WHERE kind = 'exporter'",
                                kSource, columns)) +
         CreateFeed("raw_losses", fmt::format("SELECT {}, place, reason, count, unit\nFROM "
                                              "kafka_health WHERE kind = 'loss'",
                                              kSource)) +
         CreateFeed("raw_streams",
                    "SELECT bucket, collector, run, part, sampler_address AS exporter, port, "
                    "version, unit, stream, segment, first, next, came\nFROM kafka_health WHERE "
                    "kind = 'stream'");
}

// What collectors say of groups where they write the tables themselves.
std::string Groups(std::span<const GroupInfo> groups) {
  std::string group_rows;
  std::string meter_rows;
  int place = 0;
  for (const GroupInfo& group : groups) {
    if (!HasTiers(group)) continue;
    group_rows += fmt::format("{}({}, {}, {}, {}, {}, 0)", group_rows.empty() ? "" : ", ",
                              Quoted(group.id), ++place, Quoted(group.title),
                              Quoted(group.key_title), Quoted(KeyKindName(group.key_kind)));
    int meter_place = 0;
    const std::vector<ValueColumn> columns = ValueColumns(group);
    for (const MeterInfo& meter : group.meters) {
      ++meter_place;
      if (std::ranges::find(columns, meter.id, &ValueColumn::name) == columns.end()) continue;
      meter_rows += fmt::format("{}({}, {}, {}, {}, {}, 0)", meter_rows.empty() ? "" : ", ",
                                Quoted(group.id), meter_place, Quoted(meter.id),
                                Quoted(meter.title), Quoted(UnitName(meter.unit)));
    }
  }
  return fmt::format("INSERT INTO raw_groups VALUES {};\n\nINSERT INTO raw_meters VALUES {};\n\n",
                     group_rows, meter_rows);
}

}  // namespace

std::string KafkaSchema(std::span<const GroupInfo> groups, std::string_view brokers,
                        std::string_view topics) {
  const GroupColumns columns = ColumnsOf(groups);
  std::string health = fmt::format("{}, {}", kSpanColumns, kHealthColumns);
  for (const HealthColumn& column : HealthColumns()) {
    health += fmt::format(", {} UInt64", column.name);
  }
  const auto topic = [&](std::string_view name) { return fmt::format("{}.{}", topics, name); };
  std::string schema = Groups(groups);
  schema += CreateReader("kafka_flows", kFlowColumns, brokers, topic("flows"));
  schema += CreateReader("kafka_counters",
                         fmt::format("{}, {}{}", kSpanColumns, kCounterColumns, columns.all),
                         brokers, topic("counters"));
  schema += CreateReader("kafka_health", health, brokers, topic("health"));
  schema += FlowFeed();
  for (const Tier& tier : kTiers) schema += CounterFeed(tier, columns.more);
  return schema + HealthFeeds();
}

}  // namespace flow::host
