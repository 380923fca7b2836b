// SPDX-License-Identifier: Apache-2.0
// The store: takes what was counted, minute by minute, and writes it in a thread of its own.
//
// Whoever counts waits for nothing. When the thread cannot keep up, flows are let go, as a sum that
// is told; counters wait a while and become a gap after that.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/base/writer.h"
#include "host/period/reporter.h"
#include "host/store/counters.h"
#include "host/store/flow_files.h"
#include "host/store/store_options.h"

namespace flow::host {

class Console;

class Store {
 public:
  // Opens or makes it; HostError when it cannot. All but the options outlive it.
  Store(const StoreOptions& options, std::span<const GroupInfo> groups, const StandIns& stand_ins,
        Console& console);

  // TakeFlows takes flows that were counted at a time or before it, in the tick that is to come,
  // and Take all else that was counted in it. Flows are written as they come, but they count when
  // their minute ends.
  void TakeFlows(Timestamp time, FlowBatch flows);
  void Take(const Tick& tick, const std::vector<Harvest>& harvests);

  // End writes what there is and closes; where whoever counts waits, it is done then. FinishBy
  // waits for it, false when it takes longer than until the deadline.
  void End();
  [[nodiscard]] bool FinishBy(Writer::Clock::time_point deadline) {
    return writer_.FinishBy(deadline);
  }

  [[nodiscard]] bool Succeeded() const { return !failed_; }
  [[nodiscard]] const std::string& directory() const { return options_.directory; }
  // How long the writer has worked so far. Any thread.
  [[nodiscard]] double WriteSeconds() const { return write_seconds_; }

 private:
  void Post(const Writer::Job& job);
  void WaitAWhile();
  void EndMinute(const Tick& tick);
  void TakeExporters(StoredMinute* minute);
  void TakeNotes(StoredMinute* minute);
  // In the writer's thread.
  void TakeCounts(const StatsStore& counted, StoredMinute* minute);
  void WriteFlows(std::int64_t bucket, const FlowBatch& batch);
  void LoseFlows();
  void WriteMinute(StoredMinute minute, NotKept not_kept);
  // Whether all is written, and what is old is gone.
  bool WriteWaiting();
  void OpenFlows(std::int64_t bucket);
  void LetGoOfMoved();
  Counters& AtHand();
  void DropOld(std::int64_t now);
  void TellNotices();
  template <class Action>
  bool Try(Action&& action);

  StoreOptions options_;
  std::span<const GroupInfo> groups_;
  const StandIns& stand_ins_;
  Console& console_;

  // The minute at hand, of whoever calls Take.
  std::unique_ptr<StatsStore> minute_;
  ExporterTable exporters_;
  Losses losses_;
  NotKept not_kept_;
  Timestamp from_ = 0;
  bool told_full_ = false;
  absl::flat_hash_map<std::string, std::string> known_notes_;  // what was said so far

  // Of the writer's thread.
  std::unique_ptr<Counters> counters_;  // null while they cannot be opened anew
  FlowFiles flows_;
  std::deque<StoredMinute> waiting_;        // that could not be written yet
  NotKept uncommitted_;                     // flows of the minute at hand
  NotKept lost_;                            // of these, those that could not be written
  absl::flat_hash_set<std::string> named_;  // keys whose names were written
  std::int64_t unwritten_from_ = 0;
  std::int64_t unwritten_to_ = 0;  // 0 for none
  std::int64_t hour_ = 0;          // of the flow file at hand
  std::int64_t open_minute_ = 0;   // that has flows, and has not ended; 0 for none
  bool is_new_hour_ = false;
  bool in_trouble_ = false;

  std::atomic<bool> failed_ = false;
  std::atomic<double> write_seconds_ = 0;  // one thread adds to it
  std::atomic<std::uint64_t> flows_waiting_ = 0;
  Writer writer_;  // the last to be made, the first to go
};

}  // namespace flow::host
