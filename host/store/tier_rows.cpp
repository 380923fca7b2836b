// SPDX-License-Identifier: Apache-2.0
#include "host/store/tier_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace flow::host {

void TierRows::KnowGroups(std::span<const GroupInfo> groups) {
  for (const GroupInfo& group : groups) {
    if (HasTiers(group)) known_[group.id] = true;
  }
}

TierRows::Statements& TierRows::StatementsOf(const Tier& tier, const GroupInfo& group) {
  const std::string name = TierTable(group.id, tier);
  const auto prepared = statements_.find(name);
  if (prepared != statements_.end()) return prepared->second;
  if (!std::exchange(known_[group.id], true)) CreateGroup(&database_, group);
  std::string names = "bucket, key, keys, bound";
  std::string places = "?, ?, ?, ?";
  for (const ValueColumn& column : ValueColumns(group)) {
    names += ", " + Identifier(column.name);
    places += ", ?";
  }
  const std::string table = Identifier(name);
  return statements_
      .emplace(name,
               Statements{database_.Prepare(
                              fmt::format("INSERT INTO {} ({}) VALUES ({})", table, names, places)),
                          database_.Prepare(
                              fmt::format("SELECT {} FROM {} WHERE bucket = ?", names, table)),
                          database_.Prepare(fmt::format("DELETE FROM {} WHERE bucket = ?", table))})
      .first->second;
}

void TierRows::Write(const Tier& tier, std::int64_t bucket, const TierCounts& counts,
                     std::size_t kept) {
  for (const auto& sums : counts.groups()) {
    if (sums->Empty()) continue;
    Statements& statements = StatementsOf(tier, sums->info());
    statements.drop.Bind(1, bucket).Run();
    Write(*sums, bucket, kept, &statements);
  }
}

void TierRows::Write(const GroupSums& sums, std::int64_t bucket, std::size_t kept,
                     Statements* statements) {
  Statement& insert = statements->insert;
  const auto write = [&](std::string_view key, std::uint64_t keys, std::uint64_t bound,
                         const std::uint64_t* values) {
    insert.Bind(1, bucket).Bind(2, key).Bind(3, keys).Bind(4, bound);
    int place = 4;
    for (std::size_t i = 0; i < sums.columns().size(); ++i) {
      if (sums.columns()[i].meters.empty()) {
        insert.BindNull(++place);
      } else {
        insert.Bind(++place, values[i]);
      }
    }
    insert.Run();
  };
  // In the order of their keys, in which they are added at an end.
  GroupSums::Ranking ranking = sums.Rank(kept);
  std::ranges::sort(ranking.rows, {}, &GroupSums::Row::key);
  write(kOthersKey, ranking.other_keys, 0, ranking.others.data());
  for (const GroupSums::Row& row : ranking.rows) write(row.key, 1, row.bound, row.values);
}

void TierRows::Read(const Tier& tier, std::int64_t bucket, TierCounts* counts) {
  std::vector<std::uint64_t> values;
  for (const auto& sums : counts->groups()) {
    Statement& select = StatementsOf(tier, sums->info()).select;
    GroupSums read(sums->info());
    std::vector<std::uint64_t> others;
    std::uint64_t other_keys = 0;
    std::uint64_t least = 0;  // that a key which has a row may have had
    bool has_rows = false;
    select.Bind(1, bucket);
    while (select.Step()) {
      const std::string_view key = select.Text(1);
      values.clear();
      for (std::size_t i = 0; i < sums->columns().size(); ++i) {
        values.push_back(static_cast<std::uint64_t>(select.Integer(static_cast<int>(i) + 4)));
      }
      if (key == kOthersKey) {
        others = values;
        other_keys = static_cast<std::uint64_t>(select.Integer(2));
        continue;
      }
      const auto bound = static_cast<std::uint64_t>(select.Integer(3));
      const std::uint64_t most = values[sums->ranked()] + bound;
      least = has_rows ? std::min(least, most) : most;
      has_rows = true;
      read.Add(key, values.data(), bound);
    }
    if (other_keys > 0) {
      read.AddOthers(others.data(), other_keys,
                     has_rows ? std::min(least, others[sums->ranked()]) : others[sums->ranked()]);
    }
    sums->Add(read);
  }
}

void TierRows::DropBefore(const Tier& tier, std::int64_t bucket) {
  for (const auto& [id, has_tables] : known_) {
    database_.Execute(
        fmt::format("DELETE FROM {} WHERE bucket < {}", Identifier(TierTable(id, tier)), bucket));
  }
}

}  // namespace flow::host
