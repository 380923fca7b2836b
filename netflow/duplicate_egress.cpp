// SPDX-License-Identifier: Apache-2.0
#include "netflow/duplicate_egress.h"

#include <cstring>
#include <string>

#include "plugin/site_log.h"

namespace flow {
namespace {

constexpr std::chrono::seconds kReportInterval{60};

}  // namespace

void MarkSet::Insert(std::uint32_t hash) {
  if (slots_.size() < 2 * (size_ + 1)) {
    std::vector<std::uint64_t> old(slots_.empty() ? 64 : 2 * slots_.size());
    old.swap(slots_);
    for (const std::uint64_t mark : old) {
      if (!IsFree(mark)) slots_[SlotOf(static_cast<std::uint32_t>(mark))] = mark;
    }
  }
  std::uint64_t& slot = slots_[SlotOf(hash)];
  if (!IsFree(slot)) return;
  slot = Mark(hash);
  ++size_;
}

void DuplicateEgress::EndSet(IOmbrelContainer* site) {
  if (count_ == 0) return;
  const Clock::time_point now = Clock::now();
  if (now - last_report_ <= kReportInterval) return;
  Log(site, kLogInformation, "Ignored duplicate v9 egress flow count= " + std::to_string(count_));
  count_ = 0;
  last_report_ = now;
}

std::uint32_t DuplicateEgress::Hash(const char* session_key) noexcept {
  constexpr std::uint32_t kMultiplier = 0x5BD1E995;
  constexpr std::uint32_t kSeed = 150637;
  constexpr std::size_t kWords = 15;
  std::uint32_t h = kSeed;
  for (std::size_t i = 0; i < kWords; ++i) {
    std::uint32_t k = 0;
    std::memcpy(&k, session_key + 4 * i, sizeof(k));  // little-endian, as this machine is
    k *= kMultiplier;
    k ^= k >> 24;
    k *= kMultiplier;
    h = (h * kMultiplier) ^ k;
  }
  const auto tail = [&](int i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(session_key[i]));
  };
  h ^= tail(62) << 16 ^ tail(61) << 8 ^ tail(60);
  h *= kMultiplier;
  h ^= h >> 13;
  h *= kMultiplier;
  return h ^ h >> 15;
}

}  // namespace flow
