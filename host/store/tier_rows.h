// SPDX-License-Identifier: Apache-2.0
// The counters of a span as rows of its tier's tables, there and back.
#pragma once

#include <map>
#include <string>

#include "host/store/database.h"
#include "host/store/schema.h"
#include "host/store/tier_counts.h"

namespace flow::host {

class TierRows {
 public:
  explicit TierRows(Database* database) : database_(*database) {}

  // Write puts the largest keys of every group, and the others, in place of what the bucket has.
  void Write(const Tier& tier, std::int64_t bucket, const TierCounts& counts, std::size_t kept);
  // Read adds what a bucket has.
  void Read(const Tier& tier, std::int64_t bucket, TierCounts* counts);

  // DropBefore deletes the buckets before one, of every group that was written.
  void DropBefore(const Tier& tier, std::int64_t bucket);

  // Groups beyond those that the database was made with get their tables when they are written.
  void KnowGroups(std::span<const GroupInfo> groups);

 private:
  struct Statements {
    Statement insert;
    Statement select;
    Statement drop;
  };

  void Write(const GroupSums& sums, std::int64_t bucket, std::size_t kept, Statements* statements);
  Statements& StatementsOf(const Tier& tier, const GroupInfo& group);

  Database& database_;
  std::map<std::string, Statements> statements_;  // by table
  std::map<std::string, bool> known_;             // groups that have tables
};

}  // namespace flow::host
