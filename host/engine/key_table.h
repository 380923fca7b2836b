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
  std::uint64_t* FindOrAdd(std::string_view key) {
    if (std::uint64_t* const values = IfLast(key)) return values;
    key = key.substr(0, kLongestKey);
    return FindOrAdd(key, HashKey(key));
  }

  // The same for a key of at most kLongestKey characters whose hash is known.
  std::uint64_t* FindOrAdd(std::string_view key, std::uint32_t hash);

  // IfLast gives the values of a key that is the one of the last update, else null: neighbouring
  // updates share many keys.
  [[nodiscard]] std::uint64_t* IfLast(std::string_view key) const {
    return SameKey(key, last_key_) ? last_values_ : nullptr;
  }

  // For those who know what they will ask for: the first brings the place in the index into the
  // cache, the second, once that is there, the row.
  void PrefetchSlot(std::uint32_t hash) const {
    __builtin_prefetch(&slots_[hash & (slot_count_ - 1)]);
  }
  void PrefetchRow(std::uint32_t hash) const;

  // Find gives the values of a key that is there, else null.
  [[nodiscard]] const std::uint64_t* Find(std::string_view key) const;

  [[nodiscard]] std::size_t size() const { return size_; }

  // Bytes of memory that the table holds.
  [[nodiscard]] std::size_t Memory() const;

  // ForEach calls visit(key, values) for every row, in the order in which they were added.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    for (const Block& block : blocks_) {
      for (std::size_t at = 0; at < block.used;) {
        const std::byte* const row = block.bytes.get() + at;
        const std::string_view key = KeyOf(row);
        visit(key, ValuesOf(row, key.size()));
        at += RowBytes(key.size());
      }
    }
  }

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

  // A row: 32-bit key length, key, padding to 8 bytes, values. A row's number is the number of its
  // block and its place there in units of 8 bytes, plus one.
  static constexpr std::size_t kBlockBits = 18;
  static constexpr std::size_t kLargestBlock = std::size_t{8} << kBlockBits;

  static std::size_t KeyBytes(std::size_t key_length) { return (key_length + 4 + 7) / 8 * 8; }
  [[nodiscard]] std::size_t RowBytes(std::size_t key_length) const {
    return KeyBytes(key_length) + values_ * 8;
  }
  static std::string_view KeyOf(const std::byte* row) {
    std::uint32_t length = 0;
    std::memcpy(&length, row, sizeof(length));
    return {reinterpret_cast<const char*>(row) + sizeof(length), length};
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
  std::uint32_t AddRow(std::string_view key);
  void Grow();

  std::size_t values_;
  std::size_t size_ = 0;
  std::size_t slot_count_;  // a power of two
  LargeMemory index_;
  Slot* slots_;  // in the index
  std::vector<Block> blocks_;
  std::string_view last_key_;  // of the last update; in its row
  std::uint64_t* last_values_ = nullptr;
};

}  // namespace flow::host
