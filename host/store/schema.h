// SPDX-License-Identifier: Apache-2.0
// What the store's databases look like; docs/store.md tells it to those who read them.
//
// A directory has one database of counters and, in flows/, one of flows an hour. Times are seconds
// since 1970 where nothing else is said.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/engine/group_info.h"
#include "host/store/database.h"

namespace flow::host {

inline constexpr int kStoreVersion = 1;
inline constexpr int kStoreId = 0x464C5354;  // SQLite's application_id

inline constexpr std::int64_t kMinuteSeconds = 60;
inline constexpr std::int64_t kHourSeconds = 3600;
inline constexpr std::int64_t kDaySeconds = 86400;

// Counters by spans of one length.
struct Tier {
  std::string_view name;
  std::int64_t seconds;
  std::int64_t keep_seconds;  // when nothing else is said
  std::size_t kept_keys;      // of a group and bucket
};
inline constexpr Tier kTiers[] = {
    {"minute", kMinuteSeconds, 2 * kDaySeconds, 250},
    {"hour", kHourSeconds, 60 * kDaySeconds, 1000},
    {"day", kDaySeconds, 5 * 366 * kDaySeconds, 1000},
};

// The key of what the others of a group have together.
inline constexpr std::string_view kOthersKey = "(others)";

// A column of a group's values: the sum of meters; NULL of none.
struct ValueColumn {
  std::string name;
  std::vector<int> meters;
};
// First "bytes" and "packets", which every group has, then its other meters.
std::vector<ValueColumn> ValueColumns(const GroupInfo& group);

// Flows are in files of their own, and no tier has them.
inline bool HasTiers(const GroupInfo& group) { return group.key_kind != KeyKind::kSession; }

// What the tables of groups and meters call them: "ipv4", "bytes".
std::string_view KeyKindName(KeyKind kind);
std::string_view UnitName(Unit unit);

// "hosts_hour".
std::string TierTable(std::string_view name, const Tier& tier);

std::string CountersPath(const std::string& directory);
std::string FlowDirectory(const std::string& directory);
// hour: when it begins. The file is FLOWS/2026-11-25T02.sqlite, in UTC.
std::string FlowFilePath(const std::string& directory, std::int64_t hour);

// CreateCounters and CreateFlowFile make what a database has not yet. HostError when it is of a
// later version, or none of ours.
void CreateCounters(Database* database, std::span<const GroupInfo> groups);
// CreateGroup makes the tables and the view of a group.
void CreateGroup(Database* database, const GroupInfo& group);
void CreateFlowFile(Database* database, std::int64_t hour);

// Of an exporter's health; NULL where its datagrams do not tell.
inline constexpr std::string_view kClockOffset = "clock_offset_ms";
bool HasColumn(Database* database, std::string_view table, std::string_view column);

// PutMeta writes a number into the table meta.
void PutMeta(Database* database, std::string_view name, std::int64_t value);

// The columns of the table of flows, in its order.
inline constexpr std::string_view kFlowColumnNames[] = {
    "minute",   "first", "last",    "src",       "dst",         "sport",    "dport",
    "proto",    "bytes", "packets", "bytes_rev", "packets_rev", "records",  "closed",
    "exporter", "in_if", "out_if",  "src_as",    "dst_as",      "next_hop", "bgp_next_hop",
    "vrf",      "app",   "user",    "tag",       "src_mac",     "dst_mac"};

}  // namespace flow::host
