// SPDX-License-Identifier: Apache-2.0
// How many log messages of a kind are shown: a few in each stretch of time, and then how many more
// there were and how many exporters they were about. A stranger who sends what the plug-in has a
// message on can send it a million times a second.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/endpoint.h"

namespace flow::host {

struct LogMessage {
  std::string_view component;
  std::string_view level;
  std::string_view text;
  const IpAddress* exporter = nullptr;  // that it is about; null for none
};

// KindOf is a text with all words left out that have a digit: numbers, addresses, keys.
std::string KindOf(std::string_view text);

// A message as a line of the log.
std::string LogLine(const LogMessage& message);

class LogLimit {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::uint64_t kMostShown = 5;  // of a kind in a stretch
  static constexpr std::chrono::seconds kStretch{10};

  // Take tells whether a message is to be shown; it counts those that are not.
  bool Take(const LogMessage& message, Clock::time_point now);

  // Summaries are the lines on what was not shown in the stretches that have ended by now; at the
  // end of the log, in all.
  std::vector<std::string> Summaries(Clock::time_point now, bool at_end = false);

 private:
  struct Kind {
    Clock::time_point start;
    std::uint64_t shown = 0;
    std::uint64_t held_back = 0;
    std::string component;  // of the last message
    std::string level;
    std::string text;
    absl::flat_hash_set<IpAddress> exporters;  // of those that were held back
  };

  Kind& KindFor(const LogMessage& message, Clock::time_point now);

  absl::flat_hash_map<std::string, Kind> kinds_;
};

}  // namespace flow::host
