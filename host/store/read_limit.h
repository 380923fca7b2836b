// How long a thread may read databases: whoever asks from elsewhere must not keep the machine busy.
#pragma once

#include <chrono>

namespace flow::host {

class ReadLimit {
 public:
  using Clock = std::chrono::steady_clock;

  ReadLimit() = default;  // for ever
  explicit ReadLimit(Clock::time_point end) : end_(end) {}

  // Of this thread. Whoever spreads reading over threads hands it on.
  [[nodiscard]] static const ReadLimit& Current();

  [[nodiscard]] bool IsSet() const { return end_ != Clock::time_point::max(); }
  [[nodiscard]] bool IsOver() const { return Clock::now() >= end_; }

  // A limit while it stands.
  class Scope {
   public:
    explicit Scope(const ReadLimit& limit);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Clock::time_point before_;
  };

 private:
  Clock::time_point end_ = Clock::time_point::max();
};

}  // namespace flow::host
