// SPDX-License-Identifier: Apache-2.0
// Rows of numbers named by text keys: the heart of the statistics engine.
//
// A row is its key and a fixed number of 64-bit values, side by side in large blocks, and never
// moves. An open-addressing index of {hash, row} finds it, so that an update costs two places in
// memory, and no update of a known key allocates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "host/engine/key_bytes.h"
#include "host/engine/large_memory.h"

namespace flow::host {

class KeyTable {
 public:
  // values: how many a row has.
  explicit KeyTable(std::size_t values);

  // FindOrAdd gives the values of a key; those of a new key are zero. The pointer stays valid as
  // long as the table. Keys are cut at kLongestKey.
  std::uint64_t* FindOrAdd(std::string_view key);

  // The same for a key of at most kLongestKey characters whose hash is known.
  std::uint64_t* FindOrAdd(std::string_view key, std::uint32_t hash) {
    const Slot& slot = slots_[hash & (slot_count_ - 1)];  // most keys are where they belong
    if (slot.hash == hash && slot.row != 0) {
      if (std::uint64_t* const values = UpdateLikely(slot.row, key)) return values;
    }
    return SearchOrAdd(key, hash);
  }

  // Absorb takes over another table's rows, which stay where they are; only the index grows. For a
  // key that both have it calls combine(values here, values there).
  template <class Combine>
  void Absorb(KeyTable&& other, Combine&& combine) {
    Reserve(size_ + other.size_);
    const std::uint32_t moved = AdoptBlocks(&other);
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < other.slot_count_; ++i) {
      PrefetchSlot(other.slots_[(i + kAhead) & (other.slot_count_ - 1)].hash);
      Slot slot = other.slots_[i];
      if (slot.row == 0) continue;
      slot.row += moved;
      std::byte* const row = RowAt(slot.row);
      const std::string_view key = KeyOf(row);
      Slot& place = slots_[FindSlot(slot.hash, key)];
      if (place.row == 0) {
        place = slot;
        ++size_;
      } else {
        combine(MutableValues(RowAt(place.row)), MutableValues(row));
        Forget(row);
        live_bytes_ -= RowBytes(key.size());
      }
    }
    CompactIfSparse();
  }

  // For those who know what they will ask for: the first brings the place in the index into the
  // cache, the second, once that is there, the row.
  void PrefetchSlot(std::uint32_t hash) const {
    __builtin_prefetch(&slots_[hash & (slot_count_ - 1)]);
  }
  // The second gives the number of the row that most likely is the key's, 0 for none, which
  // UpdateLikely checks: the values if it is, else null.
  std::uint32_t PrefetchRow(std::uint32_t hash) const;
  std::uint64_t* UpdateLikely(std::uint32_t number, std::string_view key) const {
    if (number == 0) return nullptr;
    std::byte* const row = RowAt(number);
    return SameKey(KeyOf(row), key) ? MutableValues(row) : nullptr;
  }

  // Find gives the values of a key that is there, else null.
  [[nodiscard]] const std::uint64_t* Find(std::string_view key) const;

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::size_t values() const { return values_; }

  // Bytes of memory that the table holds.
  [[nodiscard]] std::size_t Memory() const { return slot_count_ * sizeof(Slot) + block_bytes_; }

  // ForEach calls visit(key, values) for every row, in the order in which they were added.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    ForEachRow([&](Row row) { visit(KeyOf(row), ValuesOf(row)); });
  }

  // Drain is ForEach and leaves nothing: memory is let go as soon as its rows have been visited.
  template <class Visit>
  void Drain(Visit&& visit) {
    std::vector<Block> blocks = std::exchange(blocks_, {});
    *this = KeyTable(values_);
    for (Block& block : blocks) {
      ForEachRowIn(block, [&](Row row) { visit(KeyOf(row), ValuesOf(row)); });
      block.bytes.reset();
    }
  }

  // A row stays where it is as long as the table, until the next Absorb.
  using Row = const std::byte*;
  template <class Visit>
  void ForEachRow(Visit&& visit) const {
    for (const Block& block : blocks_) ForEachRowIn(block, visit);
  }
  static std::string_view KeyOf(Row row) {
    return {reinterpret_cast<const char*>(row) + sizeof(KeyLength),
            static_cast<std::size_t>(LengthOf(row) & ~kForgotten)};
  }
  static const std::uint64_t* ValuesOf(Row row) { return ValuesOf(row, KeyOf(row).size()); }

  static constexpr std::size_t kLongestKey = 4096;

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t row;  // 0 for a free slot
  };
  struct Block {
    LargeMemory bytes;
    std::size_t used = 0;
    std::size_t size = 0;
  };

  template <class Visit>
  void ForEachRowIn(const Block& block, Visit&& visit) const {
    for (std::size_t at = 0; at < block.used;) {
      const Row row = block.bytes.get() + at;
      if (!IsForgotten(row)) visit(row);
      at += RowBytes(KeyOf(row).size());
    }
  }

  // A row: key length, key, padding to 8 bytes, values. A row's number is the number of its block
  // and its place there in units of 8 bytes, plus one.
  using KeyLength = std::uint16_t;
  static constexpr std::size_t kBlockBits = 18;
  static constexpr std::size_t kLargestBlock = std::size_t{8} << kBlockBits;

  static std::size_t KeyBytes(std::size_t key_length) {
    return (key_length + sizeof(KeyLength) + 7) / 8 * 8;
  }
  [[nodiscard]] std::size_t RowBytes(std::size_t key_length) const {
    return KeyBytes(key_length) + values_ * 8;
  }
  static KeyLength LengthOf(Row row) {
    KeyLength length = 0;
    std::memcpy(&length, row, sizeof(length));
    return length;
  }
  // A forgotten row is in no index.
  static constexpr KeyLength kForgotten = 1 << 15;
  static_assert(kLongestKey < kForgotten);
  static bool IsForgotten(Row row) { return (LengthOf(row) & kForgotten) != 0; }
  static void Forget(std::byte* row) {
    const auto length = static_cast<KeyLength>(LengthOf(row) | kForgotten);
    std::memcpy(row, &length, sizeof(length));
  }
  static std::uint64_t* MutableValues(std::byte* row) {
    return const_cast<std::uint64_t*>(ValuesOf(row, KeyOf(row).size()));
  }
  static const std::uint64_t* ValuesOf(const std::byte* row, std::size_t key_length) {
    return reinterpret_cast<const std::uint64_t*>(row + KeyBytes(key_length));
  }
  [[nodiscard]] std::byte* RowAt(std::uint32_t number) const {
    const std::uint32_t place = number - 1;
    constexpr std::uint32_t kMask = (std::uint32_t{1} << kBlockBits) - 1;
    return blocks_[place >> kBlockBits].bytes.get() + std::size_t{place & kMask} * 8;
  }

  // FindSlot gives the slot that holds the key, or the free one where it belongs.
  [[nodiscard]] std::size_t FindSlot(std::uint32_t hash, std::string_view key) const;
  std::uint64_t* SearchOrAdd(std::string_view key, std::uint32_t hash);
  std::uint32_t AddRow(std::string_view key);
  // Copies the rows together where most of the memory holds none: forgotten rows, ends of blocks.
  void CompactIfSparse();
  void Resize(std::size_t slot_count);
  void Reserve(std::size_t rows);
  // Takes over the blocks; the result is what to add to the numbers of their rows.
  std::uint32_t AdoptBlocks(KeyTable* other);

  std::size_t values_;
  std::size_t size_ = 0;
  std::size_t slot_count_;  // a power of two
  LargeMemory index_;
  Slot* slots_;  // in the index
  std::vector<Block> blocks_;
  std::size_t block_bytes_ = 0;
  std::size_t live_bytes_ = 0;  // of the rows in the index
};

}  // namespace flow::host
