// SPDX-License-Identifier: Apache-2.0
// Brings together the ticks of a minute, for who keeps minutes.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/engine/stats_store.h"
#include "host/intake/stand_ins.h"
#include "host/period/reporter.h"
#include "host/store/counters.h"

namespace flow::host {

// The minute that a time is in, in seconds.
inline std::int64_t MinuteOf(Timestamp time) {
  return time / kMicrosPerSecond / kMinuteSeconds * kMinuteSeconds;
}

// A minute that has ended. Its counts have to be read yet, which takes longest.
struct CountedMinute {
  StoredMinute minute;
  std::unique_ptr<StatsStore> counted;
};

class MinuteTaker {
 public:
  // Both outlive it.
  MinuteTaker(std::span<const GroupInfo> groups, const StandIns& stand_ins);

  // Take adds a tick; the result is the minute where that has ended, else null.
  std::shared_ptr<CountedMinute> Take(const Tick& tick, const std::vector<Harvest>& harvests);

  // ReadCounts fills in the minute's counts, and names of keys that no minute had before. In one
  // thread, which may be another one.
  void ReadCounts(CountedMinute* ended);

 private:
  std::shared_ptr<CountedMinute> EndMinute(const Tick& tick);
  void TakeExporters(StoredMinute* minute);
  void TakeNumbers(const ExporterTable& table, StoredMinute* minute) const;
  void TakeNotes(StoredMinute* minute);

  std::span<const GroupInfo> groups_;
  const StandIns& stand_ins_;
  std::unique_ptr<StatsStore> counted_;
  ExporterTable exporters_;
  Losses losses_;
  Timestamp from_ = 0;
  absl::flat_hash_map<std::string, std::string> known_notes_;  // what was said so far

  absl::flat_hash_set<std::string> named_;  // keys whose names were given; of ReadCounts' thread
};

}  // namespace flow::host
