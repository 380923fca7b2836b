// The reports of a run: what is shown and written at each tick, and at its end.
#pragma once

#include <atomic>
#include <span>
#include <string>
#include <vector>

#include "host/output/outputs.h"
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
  // options' groups are ids. All outlive the report.
  RunReport(RunKind kind, std::span<const GroupInfo> groups, const HomeRanges& home,
            const StandIns& stand_ins, const OutputOptions& options, Console& console);

  // Captures that were read; for the report of the whole.
  std::vector<CaptureResult>& captures() { return captures_; }

  // Take adds what the lanes counted until a tick, and reports what the tick asks for.
  void Take(const Tick& tick, std::vector<Harvest> harvests, double seconds);

  // Whether every output could be written so far.
  [[nodiscard]] bool Succeeded() const { return !failed_; }

 private:
  void Add(const Tick& tick, std::vector<Harvest> harvests, double seconds);
  void TakeBucket(const Tick& tick, const std::vector<Harvest>& harvests);
  void EndBuckets(const Tick& tick);
  void End(double seconds);
  [[nodiscard]] Report ReportOn(const Period& period) const;
  void Show(const Period& period, std::string title, double seconds);
  // False when it failed, which is told.
  template <class Writer>
  bool Write(Writer&& writer);

  RunKind kind_;
  std::span<const GroupInfo> groups_;
  const HomeRanges& home_;
  const StandIns& stand_ins_;
  const OutputOptions& options_;
  Console& console_;
  std::vector<CaptureResult> captures_;
  KernelDrops kernel_drops_;
  Period interval_;
  Period run_;     // the intervals before
  Period bucket_;  // for the outputs that take buckets
  bool has_buckets_;
  bool has_intervals_ = false;
  std::atomic<bool> failed_ = false;
};

}  // namespace flow::host
