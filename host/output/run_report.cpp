#include "host/output/run_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/output/summary.h"
#include "host/period/ipv6_directions.h"

namespace flow::host {
namespace {

constexpr Timestamp kMicrosPerMilli = 1000;

std::string TitleOf(const char* what, Timestamp from, Timestamp to) {
  return fmt::format("{}, {} to {} UTC", what, TimeText(from / kMicrosPerSecond),
                     TimeText(to / kMicrosPerSecond));
}

}  // namespace

RunReport::RunReport(RunKind kind, std::span<const GroupInfo> groups, const HomeRanges& home,
                     const StandIns& stand_ins, const OutputOptions& options, Console& console)
    : kind_(kind),
      groups_(groups),
      home_(home),
      stand_ins_(stand_ins),
      options_(options),
      console_(console),
      interval_(groups),
      run_(groups),
      bucket_(groups),
      has_buckets_(kind == RunKind::kPeriodic &&
                   std::ranges::any_of(options.destinations, [](const Destination& destination) {
                     return destination.kind->append != nullptr;
                   })) {}

void RunReport::Take(const Tick& tick, std::vector<Harvest> harvests, double seconds) {
  try {
    Add(tick, std::move(harvests), seconds);
  } catch (const std::exception& error) {
    failed_ = true;
    console_.Error(fmt::format("a report could not be made: {}", error.what()));
  }
}

void RunReport::Add(const Tick& tick, std::vector<Harvest> harvests, double seconds) {
  const bool periodic = kind_ == RunKind::kPeriodic;
  for (const Harvest& harvest : harvests) AddIpv6Directions(home_, harvest.store.get());
  kernel_drops_.TakeOff(tick.losses.kernel, harvests);
  if (has_buckets_) TakeBucket(tick, harvests);
  if (interval_.from == 0) interval_.from = tick.from;
  interval_.to = tick.to;
  interval_.Add(tick.intake, tick.losses);
  for (Harvest& harvest : harvests) interval_.Add(std::move(harvest));
  if (periodic) interval_.Prune();
  if (tick.is_last) return End(seconds);
  if (tick.shows) Show(interval_, TitleOf("Interval", interval_.from, interval_.to), 0);
  if (!tick.ends_interval) return;
  run_.Add(interval_);
  run_.Prune();
  interval_ = Period(groups_);
  has_intervals_ = true;
}

void RunReport::End(double seconds) {
  if (!has_intervals_) {
    const bool periodic = kind_ == RunKind::kPeriodic;
    return Show(interval_, periodic ? TitleOf("The run", interval_.from, interval_.to) : "",
                seconds);
  }
  Show(interval_, TitleOf("Interval", interval_.from, interval_.to), 0);
  run_.Add(interval_);
  run_.Prune();
  Show(run_, TitleOf("The run", run_.from, run_.to), seconds);
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
  bool written = true;
  if (!options.group_ids.empty()) {
    const Report report = ReportOn(bucket_);
    const TimeBucket bucket{bucket_.from / kMicrosPerSecond, options_.keep_days};
    for (const Destination& to : options_.destinations) {
      if (to.kind->append == nullptr) continue;
      written = Write([&] { to.kind->append(report, options, to.place, bucket); }) && written;
    }
  }
  if (!written) return;  // with the next one
  if (ended.size() == groups_.size()) {
    bucket_ = Period(groups_);
  } else {
    for (const GroupInfo* group : ended) bucket_.Clear(group->guid);
    bucket_.ClearExporters();
  }
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

void RunReport::Show(const Period& period, std::string title, double seconds) {
  Report report = ReportOn(period);
  report.captures = captures_;
  report.title = std::move(title);
  report.seconds = seconds;
  if (kind_ == RunKind::kWhole && report.exporters.empty() && report.intake.Unclaimed() > 0) {
    console_.Notice("no export datagram was found; exporters that use another port need --port");
  }
  // A document on standard output stands there alone; where nothing was read there is no summary.
  const bool is_taken = std::ranges::any_of(options_.destinations, &Destination::IsStandardOutput);
  if (!is_taken && (report.intake.Packets() > 0 || kind_ == RunKind::kPeriodic)) {
    PrintSummary(report, options_.report, stdout);
    if (std::ferror(stdout) != 0 && !failed_.exchange(true)) {
      console_.Error("summaries cannot be written to standard output");
    }
  }
  for (const Destination& to : options_.destinations) {
    if (kind_ == RunKind::kPeriodic && to.kind->append != nullptr) continue;
    Write([&] { to.kind->write(report, options_.report, to.place); });
  }
}

// One output that cannot be written keeps none of the others from it.
template <class Writer>
bool RunReport::Write(Writer&& writer) {
  try {
    writer();
    return true;
  } catch (const HostError& error) {
    failed_ = true;
    console_.Error(error.what());
    return false;
  }
}

}  // namespace flow::host
