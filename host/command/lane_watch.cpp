// SPDX-License-Identifier: Apache-2.0
#include "host/command/lane_watch.h"

#include <fmt/format.h>

#include "host/base/console.h"
#include "host/base/number_text.h"
#include "host/intake/stand_ins.h"

namespace flow::host {
namespace {

std::string TextOf(std::chrono::steady_clock::duration time) {
  return DurationText(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

}  // namespace

void LaneWatch::Look(Lanes& lanes) {
  const auto now = Clock::now();
  sights_.resize(lanes.size() + 1);
  for (const Lanes::BusyLane& busy : lanes.Busy()) LookAt(busy, now);
  for (const TimeBudget::Offence& offence : lanes.TakeOffences()) {
    console_.Notice(fmt::format(
        "datagrams of {} are held back for {}: a meter has been at one for {}",
        stand_ins_.RealOf(offence.exporter).Text(), TextOf(offence.penalty), TextOf(offence.took)));
  }
}

void LaneWatch::LookAt(const Lanes::BusyLane& busy, Clock::time_point now) {
  constexpr std::chrono::seconds kPatience(2);
  Sight& sight = sights_[busy.lane];
  if (sight.number != busy.at.number) sight = {busy.at.number, now, false};
  if (now - sight.since < kPatience || sight.is_told) return;
  sight.is_told = true;
  console_.Error(fmt::format("{} for {}", Name(busy), TextOf(now - sight.since)));
}

void LaneWatch::TellLost(const std::vector<Lanes::BusyLane>& busy) {
  for (const Lanes::BusyLane& each : busy) {
    console_.Error(fmt::format("{} still; what it has metered in this period is lost", Name(each)));
  }
}

std::string LaneWatch::Name(const Lanes::BusyLane& busy) const {
  Endpoint exporter = busy.at.exporter;
  exporter.address = stand_ins_.RealOf(exporter.address);
  return fmt::format("meter {} is at one datagram of {} ({} bytes)", busy.lane, exporter.Text(),
                     Thousands(busy.at.length));
}

}  // namespace flow::host
