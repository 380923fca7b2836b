// SPDX-License-Identifier: Apache-2.0
// A short queue in front of large tables.
//
// An update of a table that no cache holds waits for memory twice: for the index and for the row.
// In the queue it waits while others are being made: when it enters, its place in the index is
// asked for; some updates later its row; and when it leaves, both are there. Updates are sums, so
// their order does not matter.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "host/engine/stats_store.h"

namespace flow::host {

// An addition to one value of a row.
struct Increment {
  std::size_t column;
  std::uint64_t value;
};

class UpdateQueue {
 public:
  static constexpr std::size_t kLongestKey = 120;
  static constexpr std::size_t kMostIncrements = 6;

  // AddIncrements and AddFlow take an update. The key, of a flow a packed one, is at most
  // kLongestKey long, there are at most kMostIncrements, and the table outlives the queue.
  template <std::size_t kExtent>
  void AddIncrements(StatsStore& store, GroupCounters& group, std::string_view key,
                     std::uint32_t hash, std::span<const Increment, kExtent> increments) {
    Entry& entry = Enter(group.table, key, hash);
    entry.flows = nullptr;
    entry.store = &store;
    entry.group = &group;
    entry.count = static_cast<std::uint16_t>(increments.size());
    std::memcpy(entry.increments, increments.data(), increments.size_bytes());
    Advance();
  }
  void AddFlow(FlowTable& flows, std::string_view key, const FlowTotals& part) {
    Entry& entry = Enter(flows.rows(), key, HashKey(key));
    entry.flows = &flows;
    entry.part = part;
    Advance();
  }

  // Flush makes all updates that wait.
  void Flush();

 private:
  // Large enough for memory to answer in, small enough for the first-level cache.
  static constexpr std::size_t kEntries = 32;
  static constexpr std::size_t kRowAfter = 12;    // updates between index and row
  static constexpr std::size_t kApplyAfter = 24;  // updates between index and update

  struct Entry {
    KeyTable* table;   // null when it was made
    FlowTable* flows;  // null for increments
    StatsStore* store;
    const GroupCounters* group;
    std::uint32_t hash;
    std::uint32_t likely_row;  // once it was asked for
    std::uint16_t key_length;
    std::uint16_t count;  // of increments
    char key[kLongestKey];
    union {
      Increment increments[kMostIncrements];
      FlowTotals part;
    };

    [[nodiscard]] std::string_view Key() const { return {key, key_length}; }
  };

  Entry& Enter(KeyTable& table, std::string_view key, std::uint32_t hash) {
    Entry& entry = entries_[next_ % kEntries];
    entry.table = &table;
    entry.hash = hash;
    entry.likely_row = 0;
    entry.key_length = static_cast<std::uint16_t>(key.size());
    CopyKey(key, entry.key);
    table.PrefetchSlot(entry.hash);
    return entry;
  }
  [[gnu::always_inline]] void Advance() {
    Entry& waits_for_row = entries_[(next_ - kRowAfter) % kEntries];
    if (waits_for_row.table != nullptr) {
      waits_for_row.likely_row = waits_for_row.table->PrefetchRow(waits_for_row.hash);
    }
    Apply(entries_[(next_ - kApplyAfter) % kEntries]);
    ++next_;
  }
  void Apply(Entry& entry);

  std::array<Entry, kEntries> entries_{};
  std::size_t next_ = kEntries;
  std::uint32_t applied_ = 0;
};

}  // namespace flow::host
