// SPDX-License-Identifier: Apache-2.0
// Tells of lanes that are at one datagram for long, and of exporters that are held back for that.
#pragma once

#include <chrono>
#include <vector>

#include "host/intake/lanes.h"

namespace flow::host {

class Console;
class StandIns;

class LaneWatch {
 public:
  // Both outlive the watch.
  LaneWatch(Console& console, const StandIns& stand_ins)
      : console_(console), stand_ins_(stand_ins) {}

  // Look is to be called every second or so.
  void Look(Lanes& lanes);

  // TellLost tells of lanes that do not rest at the end.
  void TellLost(const std::vector<Lanes::BusyLane>& busy);

 private:
  using Clock = std::chrono::steady_clock;

  // The datagram that a lane was at when last seen.
  struct Sight {
    std::uint64_t number = 0;
    Clock::time_point since;
    bool is_told = false;
  };

  void LookAt(const Lanes::BusyLane& busy, Clock::time_point now);
  [[nodiscard]] std::string Name(const Lanes::BusyLane& busy) const;

  Console& console_;
  const StandIns& stand_ins_;
  std::vector<Sight> sights_;  // by lane
};

}  // namespace flow::host
