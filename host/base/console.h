// Everything that goes to standard error: errors, notices, the plug-in's log and the progress line.
// Any thread may speak.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace flow::host {

class Console {
 public:
  // log_level: the largest level of the plug-in's messages that is shown (kLogError and so on).
  explicit Console(int log_level);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  void Error(std::string_view text);
  void Notice(std::string_view text);

  // Log shows a message of a component if its level is wanted. One that repeats itself is shown
  // once, with how often it came.
  void Log(std::string_view component, int level, std::string_view text);

  // Warnings tells how many warnings and errors components have logged.
  [[nodiscard]] std::uint64_t Warnings() const { return warnings_; }

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

  std::mutex mutex_;
  int log_level_;
  bool is_terminal_;
  bool progress_shown_ = false;
  std::string last_log_;
  std::uint64_t repeats_ = 0;
  std::atomic<std::uint64_t> warnings_ = 0;
};

}  // namespace flow::host
