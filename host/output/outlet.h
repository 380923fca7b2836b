// SPDX-License-Identifier: Apache-2.0
// Where reports go: the terminal, a file, a database. With a writer of its own a stuck one holds
// nothing up; without, the caller writes.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "host/base/writer.h"

namespace flow::host {

class Console;

class Outlet {
 public:
  using Clock = Writer::Clock;
  using Task = std::function<void()>;  // writes a report; HostError when it cannot

  // What becomes of reports that wait, because an earlier one takes long or cannot be written.
  enum class Keeps {
    kNewest,  // each is written in place of the one before
    kOnce,    // each is tried once
    kAll,     // each is tried until it is written
  };
  static constexpr std::size_t kMostWaiting = 60;  // beyond, the oldest are lost

  // The name is for messages.
  Outlet(std::string name, Keeps keeps, bool has_writer, Console& console);

  void Take(Task task);

  // Watch tells of a writer that is stuck, and of one that no longer is.
  void Watch();

  // TryAgain has what could not be written tried once more.
  void TryAgain();
  // FinishBy waits for what is to be written; false when it is not done by the deadline.
  [[nodiscard]] bool FinishBy(Clock::time_point deadline);

  // Whether everything that was to be written so far could be, in the end.
  [[nodiscard]] bool Succeeded();

  [[nodiscard]] const std::string& name() const { return name_; }
  // Reports that are not written.
  [[nodiscard]] std::size_t Waiting();

 private:
  void Work();
  std::optional<Task> Next();
  bool Try(const Task& task);

  std::string name_;
  Keeps keeps_;
  Console& console_;
  std::mutex mutex_;
  std::deque<Task> waiting_;
  std::uint64_t lost_ = 0;
  bool is_writing_ = false;
  std::string trouble_;  // that the last try had
  bool is_stuck_ = false;
  std::optional<Writer> writer_;
};

}  // namespace flow::host
