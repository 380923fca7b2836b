// SPDX-License-Identifier: Apache-2.0
// The signals that a running collector answers to, as a descriptor to poll. A thread of their own
// sees to it that the first SIGINT or SIGTERM ends the process, whatever hangs.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace flow::host {

class Signals {
 public:
  using Clock = std::chrono::steady_clock;

  // From SIGINT or SIGTERM to the end of the process.
  static constexpr std::chrono::seconds kLongestEnd{10};
  // timeout(1) and service managers signal the process and then its group: both are one wish.
  static constexpr std::chrono::milliseconds kSameWish{500};

  // Blocks SIGINT, SIGTERM, SIGHUP and SIGUSR1 in this thread and all that it starts, and
  // ignores SIGPIPE. A second SIGINT or SIGTERM, kSameWish after the first, ends the process at
  // once.
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  [[nodiscard]] int descriptor() const { return taken_; }

  // Take gives the next signal that came.
  std::optional<int> Take();

  // OnLate is for the last word when the end takes too long; nullptr for none. It runs in the
  // thread of the signals, and std::_Exit follows.
  void OnLate(std::function<void()> on_late);

 private:
  void Loop();
  [[nodiscard]] int UntilLate() const;
  void Forward(int signal);
  [[noreturn]] void EndLate();

  int descriptor_ = -1;  // the kernel's
  int taken_ = -1;       // those that the thread has passed on
  int forward_ = -1;     // the other end of that
  int ending_ = -1;      // an event: the thread ends
  std::optional<Clock::time_point> end_by_;
  std::mutex mutex_;
  std::function<void()> on_late_;
  std::thread thread_;
};

}  // namespace flow::host
