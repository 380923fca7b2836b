// SPDX-License-Identifier: Apache-2.0
// A set of numbers in one open-addressing table: the filters, home AS numbers and duplicate marks
// that the record path asks. Looking up allocates nothing and touches one or two cache lines.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "util/hash.h"

namespace flow {

template <class Key>
class FlatSet {
 public:
  FlatSet() = default;
  FlatSet(const FlatSet&) = default;
  FlatSet(FlatSet&& other) noexcept
      : slots_(std::move(other.slots_)),
        size_(std::exchange(other.size_, 0)),
        has_zero_(std::exchange(other.has_zero_, false)) {}
  FlatSet& operator=(FlatSet other) noexcept {
    slots_.swap(other.slots_);
    size_ = other.size_;
    has_zero_ = other.has_zero_;
    return *this;
  }
  ~FlatSet() = default;

  [[nodiscard]] bool Empty() const noexcept { return size_ == 0; }
  [[nodiscard]] std::size_t Size() const noexcept { return size_; }

  // Clear empties the set and keeps its table. It costs as much as the table is large.
  void Clear() noexcept {
    if (size_ == 0) return;
    slots_.assign(slots_.size(), 0);
    size_ = 0;
    has_zero_ = false;
  }

  // Insert adds a key; false when it was there.
  bool Insert(Key key) {
    if (key == 0) {
      const bool added = !has_zero_;
      has_zero_ = true;
      size_ += added;
      return added;
    }
    if (slots_.size() < 2 * (size_ + 1)) Grow();
    Key& slot = slots_[SlotOf(key)];
    if (slot == key) return false;
    slot = key;
    ++size_;
    return true;
  }

  [[nodiscard]] bool Contains(Key key) const noexcept {
    if (key == 0) return has_zero_;
    return !slots_.empty() && slots_[SlotOf(key)] == key;
  }

 private:
  // The slot that holds the key, or the empty one where it belongs. 0 marks an empty slot.
  [[nodiscard]] std::size_t SlotOf(Key key) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = HashNumber(key) & mask;
    while (slots_[slot] != 0 && slots_[slot] != key) slot = (slot + 1) & mask;
    return slot;
  }

  void Grow() {
    std::vector<Key> old(slots_.empty() ? 16 : 2 * slots_.size());
    old.swap(slots_);
    for (const Key key : old) {
      if (key != 0) slots_[SlotOf(key)] = key;
    }
  }

  std::vector<Key> slots_;  // a power of two in number, at most half of them in use
  std::size_t size_ = 0;
  bool has_zero_ = false;
};

}  // namespace flow
