// SPDX-License-Identifier: Apache-2.0
// The store: takes what was counted, minute by minute, and writes it in a thread of its own.
//
// Whoever counts waits for nothing. When the thread cannot keep up, flows are let go, as a sum that
// is told; counters wait a while and become a gap after that.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "host/base/writer.h"
#include "host/period/keeper.h"
#include "host/store/counters.h"
#include "host/store/flow_files.h"
#include "host/store/minute_taker.h"
#include "host/store/store_files.h"
#include "host/store/store_options.h"

namespace flow::host {

class Console;

class Store final : public Keeper {
 public:
  // Opens or makes it; HostError when it cannot. All but the options outlive it.
  Store(const StoreOptions& options, std::span<const GroupInfo> groups, const StandIns& stand_ins,
        Console& console);

  // Flows are written as they come, but they count when their minute ends.
  void TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) override;
  void Take(const Tick& tick, const std::vector<Harvest>& harvests) override;

  void End() override;
  [[nodiscard]] bool FinishBy(Writer::Clock::time_point deadline) override;

  [[nodiscard]] bool Succeeded() const override { return !failed_; }
  [[nodiscard]] const char* name() const override { return "the store"; }
  [[nodiscard]] const std::string& directory() const { return options_.directory; }
  // How long the writer has worked so far. Any thread.
  [[nodiscard]] double WriteSeconds() const { return write_seconds_; }

 private:
  void Post(const Writer::Job& job);
  void WaitAWhile();
  // Whether there is less time to the end than this; any thread.
  [[nodiscard]] bool IsShortOf(std::chrono::seconds time) const;
  // In the writer's thread.
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
  Console& console_;
  WriterLock lock_;

  // Of whoever calls Take, but for what reads a minute's counts.
  MinuteTaker minutes_;
  NotKept not_kept_;
  bool told_full_ = false;

  // Of the writer's thread.
  std::unique_ptr<Counters> counters_;  // null while they cannot be opened anew
  FlowFiles flows_;
  std::deque<StoredMinute> waiting_;  // that could not be written yet
  NotKept uncommitted_;               // flows of the minute at hand
  NotKept lost_;                      // of these, those that could not be written
  std::int64_t unwritten_from_ = 0;
  std::int64_t unwritten_to_ = 0;  // 0 for none
  std::int64_t hour_ = 0;          // of the flow file at hand
  std::int64_t open_minute_ = 0;   // that has flows, and has not ended; 0 for none
  bool is_new_hour_ = false;
  bool in_trouble_ = false;
  bool told_short_ = false;

  std::atomic<bool> failed_ = false;
  std::atomic<double> write_seconds_ = 0;  // one thread adds to it
  std::atomic<std::uint64_t> flows_waiting_ = 0;
  std::atomic<Writer::Clock::time_point> end_by_ = Writer::Clock::time_point::max();
  Writer writer_;  // the last to be made, the first to go
};

}  // namespace flow::host
