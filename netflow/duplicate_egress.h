// SPDX-License-Identifier: Apache-2.0
// Exporters that report a flow at both its interfaces: the egress record of a flow whose ingress
// record stands in the same data set is a duplicate.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "util/hash.h"

namespace flow {

// A set of 32-bit hashes that is emptied at no cost: a mark counts only in the round that made it.
class MarkSet {
 public:
  MarkSet() = default;
  explicit MarkSet(std::uint32_t first_round) : round_(first_round) {}

  void Clear() noexcept {
    // Rounds that come again would revive their marks, and round 0 those that nobody has made.
    if (++round_ == 0) {
      std::fill(slots_.begin(), slots_.end(), 0);
      round_ = 1;
    }
    size_ = 0;
  }
  void Insert(std::uint32_t hash);
  [[nodiscard]] bool Contains(std::uint32_t hash) const noexcept {
    return !slots_.empty() && slots_[SlotOf(hash)] == Mark(hash);
  }

 private:
  [[nodiscard]] std::uint64_t Mark(std::uint32_t hash) const noexcept {
    return std::uint64_t{round_} << 32 | hash;
  }
  [[nodiscard]] bool IsFree(std::uint64_t mark) const noexcept { return mark >> 32 != round_; }
  [[nodiscard]] std::size_t SlotOf(std::uint32_t hash) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = HashNumber(hash) & mask;
    while (!IsFree(slots_[slot]) && slots_[slot] != Mark(hash)) slot = (slot + 1) & mask;
    return slot;
  }

  std::vector<std::uint64_t> slots_;  // a power of two in number, at most half of them in use
  std::size_t size_ = 0;
  std::uint32_t round_ = 1;  // stands in every mark; never 0
};

class DuplicateEgress {
 public:
  using Clock = std::chrono::steady_clock;

  explicit DuplicateEgress(Clock::time_point last_report = Clock::now())
      : last_report_(last_report) {}

  // StartSet begins a data set.
  void StartSet() noexcept {
    count_ = 0;
    ingress_.Clear();
  }

  // AddIngress remembers a flow by its session key, of at least 63 characters.
  void AddIngress(const char* session_key) { ingress_.Insert(Hash(session_key)); }

  // IsDuplicate tells whether the egress record of a flow is one. It is then counted.
  bool IsDuplicate(const char* session_key) noexcept {
    if (!ingress_.Contains(Hash(session_key))) return false;
    CountDropped();
    return true;
  }
  void CountDropped() noexcept { ++count_; }

  // EndSet reports how many records of the set were dropped, at most once a minute.
  void EndSet(IOmbrelContainer* site);

  // Hash is MurmurHash2 of the key's first 63 characters.
  [[nodiscard]] static std::uint32_t Hash(const char* session_key) noexcept;

 private:
  std::uint32_t count_ = 0;  // in the current data set
  MarkSet ingress_;          // its ingress flows
  Clock::time_point last_report_;
};

}  // namespace flow
