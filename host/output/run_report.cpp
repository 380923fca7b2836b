// SPDX-License-Identifier: Apache-2.0
#include "host/output/run_report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/base/number_text.h"
#include "host/output/sheet_record.h"
#include "host/output/summary.h"

namespace flow::host {
namespace {

constexpr Timestamp kMicrosPerMilli = 1000;

std::string TitleOf(const char* what, Timestamp from, Timestamp to) {
  return fmt::format("{}, {} to {} UTC", what, TimeText(from / kMicrosPerSecond),
                     TimeText(to / kMicrosPerSecond));
}

// Takes buckets rather than reports.
bool TakesBuckets(RunKind kind, const Destination& destination) {
  return kind == RunKind::kPeriodic && destination.kind->append != nullptr;
}

std::string SummaryOf(const Report& report, const ReportOptions& options) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const file = open_memstream(&text, &size);
  if (file == nullptr) throw std::bad_alloc();
  PrintSummary(report, options, file);
  std::fclose(file);
  std::string summary(text, size);
  std::free(text);
  return summary;
}

[[noreturn]] void FailTerminal() {
  throw HostError(
      fmt::format("summaries cannot be written to standard output: {}", std::strerror(errno)));
}

void PrintBuffered(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) FailTerminal();
}

// Past the buffer, and its lock, that the plug-in may want for what it says.
void PrintDirectly(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailTerminal();
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// What becomes one flow has no end, where it is of NetFlow; in which lane that was does not matter.
bool HasNetflow(const std::vector<Harvest>& harvests) {
  return std::ranges::any_of(harvests, [](const Harvest& harvest) {
    return std::ranges::any_of(harvest.exporters.Rows(), [](const ExporterTable::Row& row) {
      return !row.key.version.sflow;
    });
  });
}

}  // namespace

RunReport::RunReport(RunKind kind, std::span<const GroupInfo> groups, const HomeRanges& home,
                     const StandIns& stand_ins, const OutputOptions& options,
                     std::vector<Keeper*> keepers, bool has_writers, Console& console)
    : kind_(kind),
      groups_(groups),
      stand_ins_(stand_ins),
      options_(options),
      keepers_(std::move(keepers)),
      console_(console),
      directions_(home),
      interval_(std::make_shared<Period>(groups)),
      run_(std::make_shared<Period>(groups)),
      bucket_(groups),
      has_buckets_(std::ranges::any_of(
          options.destinations, [&](const Destination& to) { return TakesBuckets(kind, to); })),
      has_writers_(has_writers),
      terminal_(
          std::make_unique<Outlet>("standard output", Outlet::Keeps::kOnce, has_writers, console)) {
  for (const Destination& to : options.destinations) {
    const auto keeps = TakesBuckets(kind, to) ? Outlet::Keeps::kAll : Outlet::Keeps::kNewest;
    const std::string name = to.IsStandardOutput() ? "standard output" : to.place;
    outlets_.push_back(std::make_unique<Outlet>(name, keeps, has_writers, console));
  }
  appended_.assign(outlets_.size(), 0);
}

void RunReport::Take(const Tick& tick, std::vector<Harvest> harvests, double seconds) {
  try {
    Add(tick, std::move(harvests), seconds);
  } catch (const std::exception& error) {
    has_failed_ = true;
    console_.Error(fmt::format("a report could not be made: {}", error.what()));
  }
}

void RunReport::Add(const Tick& tick, std::vector<Harvest> harvests, double seconds) {
  const bool periodic = kind_ == RunKind::kPeriodic;
  kernel_drops_.TakeOff(tick.losses.kernel, harvests);
  if (observer_) observer_(tick, harvests);
  captures_ = tick.captures;
  const bool has_ends = !HasNetflow(harvests);
  for (const Harvest& harvest : harvests) {
    directions_.Add(harvest.store->flows());
    directions_.AddTo(harvest.store.get());
    if (!keepers_.empty() || !options_.report.split_flows) {
      TakeFlows(tick.to - 1, harvest.store->TakeFlows(), has_ends);
    }
    if (periodic) NoteLetGo(LetGo::kKeys, harvest.store->PruneTo(Shares().period_keys));
  }
  for (Keeper* const keeper : keepers_) keeper->Take(tick, harvests);
  if (has_buckets_) TakeBucket(tick, harvests);
  if (interval_->from == 0) interval_->from = tick.from;
  interval_->to = tick.to;
  interval_->Add(tick.intake, tick.losses);
  for (Harvest& harvest : harvests) interval_->Add(std::move(harvest));
  if (periodic) interval_->Prune();
  if (tick.is_last) {
    for (Keeper* const keeper : keepers_) keeper->End();
    return End(seconds);
  }
  if (!tick.ends_interval) {
    if (tick.shows) ShowSoFar();
    return;
  }
  const std::shared_ptr<const Period> ended =
      std::exchange(interval_, std::make_shared<Period>(groups_));
  if (tick.shows) Show(ended, TitleOf("Interval", ended->from, ended->to), 0);
  run_->Add(*ended);
  run_->Prune();
  has_intervals_ = true;
}

// The interval goes on; files are written of what it is now.
void RunReport::ShowSoFar() {
  std::shared_ptr<Period> shown = interval_;
  if (has_writers_ && std::ranges::any_of(options_.destinations, [this](const Destination& to) {
        return !TakesBuckets(kind_, to);
      })) {
    shown = std::make_shared<Period>(groups_);
    shown->Add(*interval_);
  }
  Show(shown, TitleOf("Interval", shown->from, shown->to), 0);
}

void RunReport::TakeEarly(EarlyFlows early) {
  try {
    directions_.Add(early.flows.table);
    TakeFlows(early.time, std::move(early.flows), !early.has_netflow);
    if (kind_ != RunKind::kPeriodic) return;
    interval_->Prune();
    if (has_buckets_) bucket_.Prune();
  } catch (const std::exception& error) {
    has_failed_ = true;
    console_.Error(fmt::format("flows could not be taken: {}", error.what()));
  }
}

// Whole to who keeps them, and into reports as they are shown.
void RunReport::TakeFlows(Timestamp time, FlowBatch flows, bool has_ends) {
  const auto show = [&](Period* period) {
    options_.report.split_flows ? period->AddFlows(flows) : period->AddShownFlows(flows, has_ends);
  };
  Period* const last = has_buckets_ ? &bucket_ : interval_.get();
  if (has_buckets_) show(interval_.get());
  if (keepers_.empty() && !options_.report.split_flows) {
    return last->MoveShownFlows(std::move(flows), has_ends);
  }
  show(last);
  if (keepers_.empty()) return;
  const auto kept = std::make_shared<const FlowBatch>(std::move(flows));
  for (Keeper* const keeper : keepers_) keeper->TakeFlows(time, kept);
}

void RunReport::End(double seconds) {
  if (!has_intervals_) {
    const bool periodic = kind_ == RunKind::kPeriodic;
    return Show(interval_, periodic ? TitleOf("The run", interval_->from, interval_->to) : "",
                seconds);
  }
  Show(interval_, TitleOf("Interval", interval_->from, interval_->to), 0);
  run_->Add(*interval_);
  run_->Prune();
  Show(run_, TitleOf("The run", run_->from, run_->to), seconds);
}

void RunReport::TakeBucket(const Tick& tick, const std::vector<Harvest>& harvests) {
  if (bucket_.from == 0) bucket_.from = tick.from;
  bucket_.to = tick.to;
  bucket_.Add(harvests);
  bucket_.Prune();
  EndBuckets(tick);
}

// The groups whose buckets end are written, the others wait for more.
void RunReport::EndBuckets(const Tick& tick) {
  ReportOptions options = options_.report;
  options.only_top_n = true;
  options.group_ids.clear();
  std::vector<const GroupInfo*> ended;
  for (const GroupInfo& group : groups_) {
    const Timestamp length = Timestamp{group.bucket_ms} * kMicrosPerMilli;
    if (!tick.is_last && tick.to % length != 0) continue;
    ended.push_back(&group);
    if (options_.report.Wants(group)) options.group_ids.push_back(group.id);
  }
  if (ended.empty()) return;
  if (!options.group_ids.empty()) {
    const auto sheets = std::make_shared<SheetRecord>();
    WriteSheets(ReportOn(bucket_), options, sheets.get());
    const TimeBucket bucket{bucket_.from / kMicrosPerSecond, options_.keep_days,
                            options_.replaces_buckets};
    for (std::size_t i = 0; i < outlets_.size(); ++i) {
      const Destination& to = options_.destinations[i];
      if (!TakesBuckets(kind_, to)) continue;
      outlets_[i]->Take([this, i, sheets, bucket] { Append(i, *sheets, bucket); });
    }
  }
  if (ended.size() == groups_.size()) {
    bucket_ = Period(groups_);
  } else {
    for (const GroupInfo* group : ended) bucket_.Clear(group->guid);
    bucket_.ClearExporters();
  }
}

// In the thread of the outlet.
void RunReport::Append(std::size_t outlet, const SheetRecord& sheets, const TimeBucket& bucket) {
  const Destination& to = options_.destinations[outlet];
  if (appended_[outlet] && !std::filesystem::exists(to.place)) {
    console_.Error(
        fmt::format("{} was removed: another one is made, without the earlier buckets", to.place));
  }
  to.kind->append(sheets, to.place, bucket);
  appended_[outlet] = true;
}

Report RunReport::ReportOn(const Period& period) const {
  return {{},
          "",
          period.intake(),
          period.losses(),
          period.store(),
          stand_ins_,
          RealExporters(period, stand_ins_),
          0,
          period.exporters().streams_evicted()};
}

void RunReport::Show(const std::shared_ptr<const Period>& period, const std::string& title,
                     double seconds) {
  const auto make = [this, period, title, seconds, captures = captures_] {
    Report report = ReportOn(*period);
    report.captures = captures;
    report.title = title;
    report.seconds = seconds;
    return report;
  };
  ShowSummary(make());
  for (std::size_t i = 0; i < outlets_.size(); ++i) {
    const Destination& to = options_.destinations[i];
    if (TakesBuckets(kind_, to)) continue;
    outlets_[i]->Take([this, make, &to] { to.kind->write(make(), options_.report, to.place); });
  }
}

// A document on standard output stands there alone; where nothing was read there is no summary.
void RunReport::ShowSummary(const Report& report) {
  if (kind_ == RunKind::kWhole && report.exporters.empty() && report.intake.Unclaimed() > 0) {
    console_.Notice("no export datagram was found; exporters that use another port need --port");
  }
  const bool is_taken = std::ranges::any_of(options_.destinations, &Destination::IsStandardOutput);
  if (is_taken || !options_.has_summary ||
      (report.intake.Packets() == 0 && kind_ == RunKind::kWhole))
    return;
  std::string text = SummaryOf(report, options_.report);
  constexpr std::chrono::seconds kPatience(5);
  if (console_.Stuck() >= kPatience) {
    text +=
        fmt::format("\nStandard error has taken nothing for {} s; {} lines of the log are lost.\n",
                    std::chrono::floor<std::chrono::seconds>(console_.Stuck()).count(),
                    Thousands(console_.Lost()));
  }
  terminal_->Take([text = std::move(text), print = has_writers_ ? PrintDirectly : PrintBuffered] {
    print(text);
  });
}

void RunReport::Watch() {
  terminal_->Watch();
  for (const auto& outlet : outlets_) outlet->Watch();
}

std::vector<Outlet*> RunReport::FinishBy(Outlet::Clock::time_point deadline) {
  for (const auto& outlet : outlets_) outlet->TryAgain();
  std::vector<Outlet*> left;
  if (!terminal_->FinishBy(deadline)) left.push_back(terminal_.get());
  for (const auto& outlet : outlets_) {
    if (!outlet->FinishBy(deadline)) left.push_back(outlet.get());
  }
  return left;
}

bool RunReport::Succeeded() {
  return !has_failed_ && terminal_->Succeeded() &&
         std::ranges::all_of(keepers_, &Keeper::Succeeded) &&
         std::ranges::all_of(outlets_, [](const auto& outlet) { return outlet->Succeeded(); });
}

}  // namespace flow::host
