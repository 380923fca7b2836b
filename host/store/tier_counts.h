// SPDX-License-Identifier: Apache-2.0
// What was counted in a span of time, with every key by its text: the running minute, hour and day.
//
// Keys are bounded in number. What was let go is known as a sum, and so is how much a key that is
// not there can have had at most, which each key that comes later carries as its bound.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/engine/key_table.h"
#include "host/engine/stats_store.h"
#include "host/store/schema.h"

namespace flow::host {

// The sums of one group.
class GroupSums {
 public:
  explicit GroupSums(GroupInfo info);

  // Add adds a key's values, one for each column; a bound may come with them.
  void Add(std::string_view key, const std::uint64_t* values, std::uint64_t bound = 0);
  void Add(const GroupSums& other);
  // AddOthers adds what is known of keys in sum alone; none of them had more than `most`.
  void AddOthers(const std::uint64_t* values, std::uint64_t keys, std::uint64_t most);
  // Prune keeps a group's keys within its own marks and the memory's; PruneTo leaves so many where
  // there are more than `most`.
  void Prune();
  void PruneTo(std::size_t most, std::size_t left);

  struct Row {
    std::string_view key;
    const std::uint64_t* values;
    std::uint64_t bound;
  };
  // The largest rows, largest first, and the sum of all others with their number.
  struct Ranking {
    std::vector<Row> rows;
    std::vector<std::uint64_t> others;
    std::uint64_t other_keys = 0;
  };
  [[nodiscard]] Ranking Rank(std::size_t most) const;

  // ForEach shows every key that is known: visit(key, values, bound).
  template <class Visit>
  void ForEach(Visit&& visit) const {
    table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
      visit(key, values, values[columns_.size()] - 1);
    });
  }
  // What was let go, and how many keys that were.
  [[nodiscard]] const std::vector<std::uint64_t>& others() const { return others_; }
  [[nodiscard]] std::uint64_t other_keys() const { return other_keys_; }

  [[nodiscard]] const GroupInfo& info() const { return info_; }
  [[nodiscard]] const std::vector<ValueColumn>& columns() const { return columns_; }
  // The column that keys are ranked by.
  [[nodiscard]] std::size_t ranked() const { return ranked_; }
  // A key's values, one for each column; null where it is not there.
  [[nodiscard]] const std::uint64_t* Find(std::string_view key) const { return table_.Find(key); }
  [[nodiscard]] bool Empty() const { return table_.size() == 0 && other_keys_ == 0; }
  [[nodiscard]] std::size_t size() const { return table_.size(); }
  // Whether every key is there.
  [[nodiscard]] bool IsWhole() const { return other_keys_ == 0; }
  // Explains says whether these, which are whole, can be what the other ones tell a part of: exact
  // values of some keys, and the sum of all others.
  [[nodiscard]] bool Explains(const GroupSums& part) const;

  void Save(std::ostream& out) const;
  [[nodiscard]] bool Load(std::istream& in);

 private:
  std::uint64_t* FindOrAdd(std::string_view key);
  [[nodiscard]] std::vector<std::uint64_t> Totals() const;

  GroupInfo info_;
  std::vector<ValueColumn> columns_;
  std::size_t ranked_ = 0;
  KeyTable table_;  // the columns' values, then the bound, one too large
  std::vector<std::uint64_t> others_;
  std::uint64_t other_keys_ = 0;
  std::uint64_t most_missing_ = 0;  // that a key which is not in the table can have had
};

struct KeptTraffic {
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
};

class TierCounts {
 public:
  TierCounts() = default;

  // Of makes the group when it is new.
  GroupSums& Of(const GroupInfo& group);
  // Takes a store's groups, except for flows; to_text turns a key into its text.
  using ToText = std::function<std::string(const GroupInfo& group, std::string_view key)>;
  void Add(const StatsStore& store, const ToText& to_text);
  void Add(const TierCounts& other);
  void Prune();
  // PruneTo halves the groups that have more than so many keys.
  void PruneTo(std::size_t most);

  [[nodiscard]] const std::vector<std::unique_ptr<GroupSums>>& groups() const { return groups_; }
  [[nodiscard]] std::size_t Keys() const;
  // What all records carried.
  [[nodiscard]] KeptTraffic AllTraffic() const;

  // Save writes everything; Load reads it into counts that know the same groups, false when it is
  // damaged or of other groups.
  void Save(std::ostream& out) const;
  [[nodiscard]] bool Load(std::istream& in);

 private:
  std::vector<std::unique_ptr<GroupSums>> groups_;
};

}  // namespace flow::host
