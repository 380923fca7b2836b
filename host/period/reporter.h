// SPDX-License-Identifier: Apache-2.0
// Brings together what all lanes have counted, tick by tick, and hands it to whoever makes reports
// of it, in a thread of its own: neither the intake nor a lane waits for a report.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/capture/capture_result.h"
#include "host/intake/lanes.h"
#include "host/period/period.h"

namespace flow::host {

// The end of a stretch of time.
struct Tick {
  Timestamp from = 0;
  Timestamp to = 0;
  IntakeCounts intake = {};  // of that time
  Losses losses = {};
  std::vector<CaptureResult> captures = {};  // read so far, where a report is to be made
  bool ends_interval = false;
  bool shows = false;  // a summary is wanted
  bool is_last = false;
};

class Reporter {
 public:
  using Handler = std::function<void(const Tick& tick, std::vector<Harvest> harvests)>;

  using EarlyHandler = std::function<void(EarlyFlows flows)>;

  Reporter(Handler handler, EarlyHandler early);
  ~Reporter();
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  // Reap has every lane hand out what it counted until now; it is handled once all have.
  void Reap(Lanes& lanes, Tick tick);

  // TakeFlowsEarly has the lanes hand out flows before a tick where they hold many: a lane stays
  // small, and the flows are handled while it goes on, before the tick that it comes to next.
  // Before the first datagram.
  void TakeFlowsEarly(Lanes& lanes);

  // IsBusy tells whether a tick is still to be handled; WaitBy waits until nothing is.
  [[nodiscard]] bool IsBusy();
  using Clock = std::chrono::steady_clock;
  [[nodiscard]] bool WaitBy(Clock::time_point deadline);  // false when something still is

  // FinishHere is for an end after Lanes::EndBy: what some lanes have handed out and others never
  // will is handled in this thread, and then the last tick with what the lanes at rest still have.
  void FinishHere(Lanes& lanes, const Tick& last);

 private:
  // What the lanes hand out at a tick, or some flows before it.
  struct Round {
    std::optional<Tick> tick;
    std::vector<Harvest> harvests;  // by lane, whichever is done first: so it reads the same again
    std::size_t awaited = 0;
    std::vector<EarlyFlows> early;
  };

  void Take(Round* round, Lane* lane);
  void TakeEarly(const Lane& lane, EarlyFlows flows);
  std::shared_ptr<Round> TakeRound();
  void Handle(Round* round);
  void Loop();
  void End();

  Handler handler_;
  EarlyHandler early_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Round>>
      rounds_;  // that were begun, in order; the first may be at work
  std::atomic<std::size_t> early_waiting_ = 0;  // flows
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace flow::host
