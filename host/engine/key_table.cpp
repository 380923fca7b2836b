// SPDX-License-Identifier: Apache-2.0
#include "host/engine/key_table.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <span>
#include <utility>

#include "host/base/heap_account.h"
#include "host/engine/growth_time.h"

namespace flow::host {
namespace {

constexpr std::size_t kFirstSlots = 16;
constexpr std::size_t kFirstBlock = 1024;
constexpr std::size_t kMostBlocks = 1 << 14;

thread_local std::chrono::steady_clock::duration time_of_growth{};

}  // namespace

std::chrono::steady_clock::duration TimeOfGrowth() { return time_of_growth; }

KeyTable::KeyTable(std::size_t values)
    : values_(values),
      slot_count_(kFirstSlots),
      index_(AllocateLarge(slot_count_ * sizeof(Slot))),
      slots_(reinterpret_cast<Slot*>(index_.get())) {}

const std::uint64_t* KeyTable::Find(std::string_view key) const {
  key = key.substr(0, kLongestKey);
  const Slot& slot = slots_[FindSlot(HashKey(key), key)];
  return slot.row == 0 ? nullptr : ValuesOf(RowAt(slot.row), key.size());
}

std::size_t KeyTable::FindSlot(std::uint32_t hash, std::string_view key) const {
  const std::size_t mask = slot_count_ - 1;
  std::size_t at = hash & mask;
  while (slots_[at].row != 0 &&
         (slots_[at].hash != hash || !SameKey(KeyOf(RowAt(slots_[at].row)), key))) {
    at = (at + 1) & mask;
  }
  return at;
}

std::uint32_t KeyTable::PrefetchRow(std::uint32_t hash) const {
  const std::size_t mask = slot_count_ - 1;
  for (std::size_t at = hash & mask; slots_[at].row != 0; at = (at + 1) & mask) {
    if (slots_[at].hash != hash) continue;
    const std::byte* const row = RowAt(slots_[at].row);
    constexpr std::size_t kLine = 64;
    constexpr std::size_t kLines = 2;  // a flow or a host with its key
    for (std::size_t line = 0; line < kLines; ++line) __builtin_prefetch(row + line * kLine, 1);
    return slots_[at].row;
  }
  return 0;
}

std::uint64_t* KeyTable::FindOrAdd(std::string_view key) {
  key = key.substr(0, kLongestKey);
  return FindOrAdd(key, HashKey(key));
}

std::uint64_t* KeyTable::SearchOrAdd(std::string_view key, std::uint32_t hash) {
  std::size_t at = FindSlot(hash, key);
  if (slots_[at].row == 0) {
    // At most two slots in three are taken, or searches grow long.
    if ((size_ + 1) * 3 > slot_count_ * 2) {
      Resize(slot_count_ * 2);
      at = FindSlot(hash, key);
    }
    slots_[at] = {hash, AddRow(key)};
    ++size_;
  }
  return MutableValues(RowAt(slots_[at].row));
}

std::uint32_t KeyTable::AddRow(std::string_view key) {
  const std::size_t bytes = RowBytes(key.size());
  if (blocks_.empty() || blocks_.back().size - blocks_.back().used < bytes) {
    const std::size_t doubled = blocks_.empty() ? kFirstBlock : blocks_.back().size * 2;
    const std::size_t size = std::max(std::min(doubled, kLargestBlock), bytes);
    const HeapScope scope(nullptr);
    if (blocks_.size() == kMostBlocks) throw std::bad_alloc();  // 32 GiB; rows have no more numbers
    blocks_.push_back({AllocateLarge(size, Cleared::kNo), 0, size});
    block_bytes_ += size;
  }
  Block& block = blocks_.back();
  std::byte* const row = block.bytes.get() + block.used;
  const auto length = static_cast<KeyLength>(key.size());
  std::memcpy(row, &length, sizeof(length));
  CopyKey(key, reinterpret_cast<char*>(row) + sizeof(length));
  std::fill_n(MutableValues(row), values_, 0);
  const std::size_t place = (blocks_.size() - 1) << kBlockBits | block.used / 8;
  block.used += bytes;
  live_bytes_ += bytes;
  return static_cast<std::uint32_t>(place + 1);
}

void KeyTable::Reserve(std::size_t rows) {
  std::size_t count = slot_count_;
  while (rows * 3 > count * 2) count *= 2;
  if (count != slot_count_) Resize(count);
}

std::uint32_t KeyTable::AdoptBlocks(KeyTable* other) {
  const std::size_t before = blocks_.size();
  if (before + other->blocks_.size() > kMostBlocks) throw std::bad_alloc();
  std::ranges::move(other->blocks_, std::back_inserter(blocks_));
  other->blocks_.clear();
  live_bytes_ += other->live_bytes_;
  block_bytes_ += other->block_bytes_;
  return static_cast<std::uint32_t>(before << kBlockBits);
}

void KeyTable::CompactIfSparse() {
  constexpr std::size_t kSpare = std::size_t{4} << 20;
  if (block_bytes_ <= 3 * live_bytes_ + kSpare) return;
  KeyTable compact(values_);
  compact.Reserve(size_);
  ForEach([&](std::string_view key, const std::uint64_t* values) {
    std::copy_n(values, values_, compact.FindOrAdd(key));
  });
  *this = std::move(compact);
}

void KeyTable::Resize(std::size_t count) {
  const auto start = std::chrono::steady_clock::now();
  LargeMemory memory = AllocateLarge(count * sizeof(Slot));
  auto* const grown = reinterpret_cast<Slot*>(memory.get());
  for (const Slot& slot : std::span(slots_, slot_count_)) {
    if (slot.row == 0) continue;
    std::size_t at = slot.hash & (count - 1);
    while (grown[at].row != 0) at = (at + 1) & (count - 1);
    grown[at] = slot;
  }
  slot_count_ = count;
  index_ = std::move(memory);
  slots_ = grown;
  time_of_growth += std::chrono::steady_clock::now() - start;
}

}  // namespace flow::host
