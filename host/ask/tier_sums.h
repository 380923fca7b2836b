// SPDX-License-Identifier: Apache-2.0
// Sums over the buckets of a group, and how exact they are.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/stored_counters.h"
#include "host/engine/key_table.h"

namespace flow::host {

// What the tiers have of a group over a span. A key that a bucket has not kept had there at most
// its cutoff: what the smallest one has that was kept, or all others together.
class TierSums {
 public:
  // ranking: the column that is asked for, a place in group.columns.
  TierSums(StoredCounters* counters, const StoredGroup& group, const Cover& cover,
           std::size_t ranking);

  struct Key {
    std::string_view key;         // as long as the sums live
    const std::uint64_t* values;  // in the order of group.columns
    std::uint64_t most;           // what it may have of the ranking column
  };

  // The largest of the ranking column, equal ones by key.
  [[nodiscard]] std::vector<Key> Largest(std::size_t count) const;

  // MostUnkept is what a key may have that is in no bucket's rows.
  [[nodiscard]] std::uint64_t MostUnkept() const { return cutoffs_; }

  // MostBeyond is what a key beyond the largest `count` may have of the ranking column.
  [[nodiscard]] std::uint64_t MostBeyond(std::size_t count) const;

  [[nodiscard]] std::size_t ranking() const { return ranking_; }
  // All keys together.
  [[nodiscard]] const std::vector<std::uint64_t>& totals() const { return totals_; }
  // How many keys there are; at least, where the others of several buckets may be the same ones.
  [[nodiscard]] std::uint64_t keys() const { return std::max(sums_.size(), most_keys_); }
  [[nodiscard]] bool knows_keys() const { return !has_others_ || buckets_ == 1; }

 private:
  void ReadSums(StoredCounters* counters, const StoredGroup& group, const TierPart& part);
  void ReadPart(StoredCounters* counters, const StoredGroup& group, const TierPart& part);

  std::size_t columns_;
  std::size_t ranking_;
  KeyTable sums_;  // behind the columns: cutoffs of buckets that have the key, bounds
  std::vector<std::uint64_t> totals_;
  std::uint64_t cutoffs_ = 0;  // of all buckets
  std::size_t buckets_ = 0;
  std::size_t most_keys_ = 0;  // in one of them
  bool has_others_ = false;
};

// Lines draws what each key had over the time in `points` steps, as far as the tiers have it.
std::vector<std::vector<double>> LinesOf(StoredCounters* counters, const StoredGroup& group,
                                         const TimeSpan& span, std::string_view column,
                                         const std::vector<std::string>& keys);

}  // namespace flow::host
