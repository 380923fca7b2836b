// SPDX-License-Identifier: Apache-2.0
// What flows say of keys whose rows a bucket does not have.
//
// A bucket has rows of its largest keys alone, so that a larger span which is put together of its
// buckets would lack what small keys had. The flows of the same time know of hosts, applications,
// interfaces and AS numbers, as long as meters count these by the rules that stand here. Whether
// they do, the rows tell that there are.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "host/store/database.h"
#include "host/store/store_options.h"
#include "host/store/tier_counts.h"

namespace flow::host {

class FlowCounts {
 public:
  // The counters' database knows how many rows of a file count. Both outlive it.
  FlowCounts(const StoreOptions& options, Database* counters)
      : options_(options), counters_(*counters) {}

  // Complete takes what the rows of a bucket say. Groups that lack keys get all of them where the
  // flows agree with every row and sum. The result is whether no group lacks any now.
  bool Complete(std::int64_t bucket, std::int64_t seconds, TierCounts* counts);

 private:
  struct Sums {
    std::uint64_t bytes = 0;
    std::uint64_t packets = 0;
    std::uint64_t in = 0;  // as destination
    std::uint64_t out = 0;
    std::uint64_t home = 0;
    std::uint64_t outside = 0;
    std::uint64_t records = 0;

    void Add(const Sums& other);
  };
  struct Column {
    std::string_view name;
    std::uint64_t Sums::*value;
  };
  static const Column kColumns[];

  enum Group : std::size_t { kHosts, kHosts6, kApplications, kInterfaces, kAsNumbers, kGroups };
  static constexpr std::string_view kGroupIds[] = {"hosts", "hosts6", "applications", "flowintfs",
                                                   "as_numbers"};
  static_assert(std::size(kGroupIds) == kGroups);
  // An address, 128 bits of it; an exporter's number and an interface; a number.
  using Key = std::pair<std::uint64_t, std::uint64_t>;

  struct Side;
  struct Way;

  // Read counts the flows of a bucket; false when there are none, or too many.
  bool Read(std::int64_t bucket, std::int64_t seconds);
  void CountFlow(const Statement& row);
  void CountWay(const Way& way);
  void CountPorts(const Way& way);
  void Add(Group group, const Key& key, const Sums& sums) { sums_[group][key].Add(sums); }

  [[nodiscard]] GroupSums SumsOf(Group group, const GroupInfo& info) const;
  [[nodiscard]] std::string TextOf(Group group, const Key& key) const;

  const StoreOptions& options_;
  Database& counters_;
  std::int64_t rows_read_ = 0;
  std::array<absl::flat_hash_map<Key, Sums>, kGroups> sums_;
  absl::flat_hash_map<std::uint64_t, std::string> exporters_;
};

}  // namespace flow::host
