// SPDX-License-Identifier: Apache-2.0
// The progress line of a long replay.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace flow::host {

class Console;

class Progress {
 public:
  explicit Progress(Console& console);

  // IsDue is asked for every packet: whether it is time to show the progress again.
  bool IsDue() { return ++ticks_ % kTicksPerLook == 0 && IsTime(); }

  // Show tells which file is being read, which part of it was (0 to 1) and the records so far.
  void Show(const std::string& path, double position, std::uint64_t records);

  // Seconds since the start.
  [[nodiscard]] double Seconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned kTicksPerLook = 1024;

  [[nodiscard]] bool IsTime() const;

  Console& console_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_;
  unsigned ticks_ = 0;
};

}  // namespace flow::host
