// SPDX-License-Identifier: Apache-2.0
// The reports of a run: what is shown and written at each tick, and at its end.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/output/outlet.h"
#include "host/output/outputs.h"
#include "host/period/ipv6_directions.h"
#include "host/period/keeper.h"
#include "host/period/period.h"
#include "host/period/reporter.h"

namespace flow::host {

class Console;

// How a run reports.
enum class RunKind {
  kWhole,     // once, everything
  kPeriodic,  // interval by interval in bounded memory, and the largest of everything at the end
};

class RunReport {
 public:
  // options' groups are ids. With writers, outputs are written in threads of
  // their own: Take waits for none of them. All outlive the report.
  RunReport(RunKind kind, std::span<const GroupInfo> groups, const HomeRanges& home,
            const StandIns& stand_ins, const OutputOptions& options, std::vector<Keeper*> keepers,
            bool has_writers, Console& console);

  // Observe has somebody see what was counted before it is taken.
  using Observer = std::function<void(const Tick& tick, const std::vector<Harvest>& harvests)>;
  void Observe(Observer observer) { observer_ = std::move(observer); }

  // Take adds what the lanes counted until a tick, and reports what the tick asks for.
  void Take(const Tick& tick, std::vector<Harvest> harvests, double seconds);

  // TakeEarly takes flows of the tick that is to come.
  void TakeEarly(EarlyFlows early);

  // Watch tells of outputs that are stuck, and of those that no longer are. Any thread.
  void Watch();

  // FinishBy waits for the writers, and gives the outputs that are not done by the deadline.
  std::vector<Outlet*> FinishBy(Outlet::Clock::time_point deadline);

  // Whether every output could be written, in the end.
  [[nodiscard]] bool Succeeded();

 private:
  void Add(const Tick& tick, std::vector<Harvest> harvests, double seconds);
  void TakeFlows(Timestamp time, FlowBatch flows, bool has_ends);
  void TakeBucket(const Tick& tick, const std::vector<Harvest>& harvests);
  void EndBuckets(const Tick& tick);
  void Append(std::size_t outlet, const SheetRecord& sheets, const TimeBucket& bucket);
  void End(double seconds);
  [[nodiscard]] Report ReportOn(const Period& period) const;
  void Show(const std::shared_ptr<const Period>& period, const std::string& title, double seconds);
  void ShowSummary(const Report& report);
  void ShowSoFar();

  RunKind kind_;
  std::span<const GroupInfo> groups_;
  const StandIns& stand_ins_;
  const OutputOptions& options_;
  std::vector<Keeper*> keepers_;
  Console& console_;
  std::vector<CaptureResult> captures_;  // as the last tick told them
  KernelDrops kernel_drops_;
  Ipv6Directions directions_;
  std::shared_ptr<Period> interval_;
  std::shared_ptr<Period> run_;  // the intervals before
  Period bucket_;                // for the outputs that take buckets
  bool has_buckets_;
  bool has_intervals_ = false;
  std::atomic<bool> has_failed_ = false;
  Observer observer_;
  bool has_writers_;
  std::unique_ptr<Outlet> terminal_;  // the writers come last: what they write lasts
  std::vector<char> appended_;        // whether buckets are there, by destination; its outlet's own
  std::vector<std::unique_ptr<Outlet>> outlets_;  // for each destination
};

}  // namespace flow::host
