// SPDX-License-Identifier: Apache-2.0
// Everything that goes to standard error: errors, notices, the plug-in's log and the progress line.
// Any thread may speak.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/log_limit.h"
#include "host/base/writer.h"

namespace flow::host {

class Console {
 public:
  using Clock = Writer::Clock;

  // log_level: the largest level of the plug-in's messages that is shown (kLogError and so on).
  explicit Console(int log_level);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // Queue has a thread of its own write from now on, so that nobody who speaks ever waits for who
  // reads, and shows few log messages of a kind. Lines that find no room are counted. Without it
  // each line is written where it is said, and none is lost.
  void Queue();

  void Error(std::string_view text);
  void Notice(std::string_view text);

  // Log shows a message of a component if its level is wanted. One that repeats itself is shown
  // once, with how often it came. exporter is whose datagram it is about; null for none.
  void Log(std::string_view component, int level, std::string_view text,
           const IpAddress* exporter = nullptr);

  // Warnings tells how many warnings and errors components have logged.
  [[nodiscard]] std::uint64_t Warnings() const { return warnings_; }

  // Sum writes what is due about messages that were not shown, and about lines that were lost.
  void Sum();

  // FinishBy writes that and waits for all lines; false when nobody has taken them by the deadline.
  bool FinishBy(Clock::time_point deadline);

  // How long nobody has taken a line that is to be written, and lines lost by that.
  [[nodiscard]] Clock::duration Stuck() const;
  [[nodiscard]] std::uint64_t Lost() const;

  // Progress replaces the progress line; nothing happens where standard error is no terminal.
  void Progress(std::string_view text);
  void ClearProgress();
  [[nodiscard]] bool IsTerminal() const { return is_terminal_; }

 private:
  // Under the lock.
  void Line(std::string_view text);
  void HideProgress();
  void Write(std::string_view text);
  void EndRepeats();
  void SumAt(Clock::time_point now, bool at_end);

  std::mutex mutex_;
  int log_level_;
  bool is_terminal_;
  bool progress_shown_ = false;
  std::string last_log_;
  std::uint64_t repeats_ = 0;
  std::atomic<std::uint64_t> warnings_ = 0;
  std::optional<Writer> writer_;  // with Queue
  LogLimit limit_;
  std::uint64_t lost_told_ = 0;
};

}  // namespace flow::host
