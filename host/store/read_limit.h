// SPDX-License-Identifier: Apache-2.0
// How long a thread may read databases: whoever asks from elsewhere must not keep the machine busy.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace flow::host {

// What is said where it was too long.
inline constexpr char kTooLong[] =
    "the answer takes too long; a shorter span, or one of the totals rather than flows, takes less";

class ReadLimit {
 public:
  using Clock = std::chrono::steady_clock;

  ReadLimit() = default;  // for ever
  // Until then, or until somebody says that it ends.
  ReadLimit(Clock::time_point end, const std::atomic<bool>& ended) : end_(end), ended_(&ended) {}

  // Of this thread. Whoever spreads reading over threads hands it on.
  [[nodiscard]] static const ReadLimit& Current();

  [[nodiscard]] bool IsSet() const { return ended_ != nullptr; }
  [[nodiscard]] std::optional<std::int64_t> SecondsLeft() const {
    if (ended_ == nullptr) return std::nullopt;
    return std::chrono::ceil<std::chrono::seconds>(end_ - Clock::now()).count();
  }
  [[nodiscard]] bool IsOver() const {
    return ended_ != nullptr && (*ended_ || Clock::now() >= end_);
  }

 private:
  Clock::time_point end_ = Clock::time_point::max();
  const std::atomic<bool>* ended_ = nullptr;
};

// This thread's limit while it stands.
class ReadLimitScope {
 public:
  explicit ReadLimitScope(const ReadLimit& limit);
  ~ReadLimitScope();
  ReadLimitScope(const ReadLimitScope&) = delete;
  ReadLimitScope& operator=(const ReadLimitScope&) = delete;

 private:
  ReadLimit before_;
};

}  // namespace flow::host
