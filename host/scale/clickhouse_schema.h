// SPDX-License-Identifier: Apache-2.0
// What the tables in a ClickHouse look like; docs/scale.md tells why.
//
// Raw tables take rows as collectors send them. Views have the names and columns of the embedded
// store's tables, each row once however often it was sent.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/engine/group_info.h"

namespace flow::host {

struct RawTable {
  std::string_view name;
  std::string_view columns;  // with their types, in the order in which rows have them
  std::string_view partition;
  std::string_view key;      // rows with equal ones are one row
  std::string_view version;  // the column that says which of them stays; empty where they are equal
};
std::span<const RawTable> RawTables();

// Null where there is none of the name.
const RawTable* FindRawTable(std::string_view name);

// InsertInto is "INSERT INTO raw_flows (...) FORMAT RowBinary".
std::string InsertInto(const RawTable& table);

// A schema of several servers has a table over all of theirs for each raw one, and the views read
// these: "raw_flows" here is "all_flows" there. Reads puts the right ones behind FROM.
inline constexpr std::string_view kSpreadTable = "all_flows";
std::string Reads(std::string sql, bool is_spread);

// What a view has of a span, for who asks often: here the span reaches the raw table. Of a group it
// has a row for each collector and run, to be added up.
std::string SpanOfView(std::string_view name, std::int64_t from, std::int64_t to);
std::string SpanOfCounters(std::string_view group, std::span<const std::string> columns,
                           std::string_view tier, std::int64_t from, std::int64_t to);

// ClickHouseSchema has a statement for each table and view, those of the groups' too; they change
// nothing that is there. `cluster`: what the servers' settings call them together, each of which
// has all statements; empty for one server.
std::string ClickHouseSchema(std::span<const GroupInfo> groups, const std::string& cluster);
// The same of tables that read a Kafka's topics, and of views that bring what they read into the
// raw tables.
std::string KafkaSchema(std::span<const GroupInfo> groups, std::string_view brokers,
                        std::string_view topics);

}  // namespace flow::host
