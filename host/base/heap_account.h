// SPDX-License-Identifier: Apache-2.0
// How much memory of operator new somebody holds: a plug-in, which shares the operator with the
// program.
//
// The account at hand is the thread's. What is allocated and freed while there is none is nobody's.
#pragma once

#include <cstddef>

namespace flow::host {

class HeapAccount {
 public:
  // Bytes that are held now, as the allocator counts them.
  [[nodiscard]] std::size_t Held() const { return held_ > 0 ? static_cast<std::size_t>(held_) : 0; }

 private:
  friend class HeapScope;
  std::ptrdiff_t held_ = 0;
};

// Within a scope the thread's allocations go to an account, or to none; scopes nest.
class HeapScope {
 public:
  explicit HeapScope(HeapAccount* account) : before_(at_hand_) {
    at_hand_ = account == nullptr ? nullptr : &account->held_;
  }
  ~HeapScope() { at_hand_ = before_; }
  HeapScope(const HeapScope&) = delete;
  HeapScope& operator=(const HeapScope&) = delete;

  // Add is for the operators.
  static void Add(std::ptrdiff_t bytes) {
    if (at_hand_ != nullptr) *at_hand_ += bytes;
  }

 private:
  static thread_local std::ptrdiff_t* at_hand_;
  std::ptrdiff_t* before_;
};

// KeepHeapSmall has the allocator give large blocks back when they are freed, and makes few heaps,
// for a budget of memory; ReturnHeap gives back what lies free between others.
void KeepHeapSmall(std::size_t budget);
void ReturnHeap();

}  // namespace flow::host
