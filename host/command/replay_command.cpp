// SPDX-License-Identifier: Apache-2.0
#include "host/command/replay_command.h"

#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/border/call_trace.h"
#include "host/border/plugin_library.h"
#include "host/capture/capture_reader.h"
#include "host/command/exit_watch.h"
#include "host/command/meter_setup.h"
#include "host/command/open_keepers.h"
#include "host/command/progress.h"
#include "host/engine/large_memory.h"
#include "host/output/run_report.h"
#include "host/period/reporter.h"
#include "host/period/schedule.h"

namespace flow::host {
namespace {

// Where no tables follow, but what lets rows go block by block while others take their place.
constexpr std::size_t kSpareOfOnePeriod = std::size_t{8} << 20;

class Replay {
 public:
  explicit Replay(const ReplayOptions& options)
      : options_(options),
        console_(options.meter.log_level),
        progress_(console_),
        setup_(options.meter, options.trace, console_),
        output_(options.output),
        schedule_(setup_.catalog().ShortestBucket(),
                  Timestamp{options.interval} * kMicrosPerSecond) {
    output_.report.group_ids = setup_.GroupIds(output_.report.group_ids);
    output_.replaces_buckets = options.existing == Existing::kAppend;
    Prepare(output_.destinations, options.existing);
  }

  int Run() {
    const ExitWatch watch([this] { PluginEndedProcess(); }, [this] { setup_.lanes().RestHere(); });
    setup_.Start(options_.meter.instances > 1 ? LaneMode::kWait : LaneMode::kInline);
    if (!keepers_.empty()) {
      reporter_.TakeFlowsEarly(setup_.lanes());
    } else if (!output_.report.split_flows) {
      setup_.lanes().ShowFlows();
    }
    if (!has_periods_) KeepSpareMemory(kSpareOfOnePeriod);
    is_reading_ = true;
    for (const std::string& path : options_.captures) ReadCapture(path);
    Reap({.to = setup_.intake().counts().last, .is_last = true});
    WaitForReports();
    return failed_ || !report_.Succeeded() ? kExitTrouble : kExitOk;
  }

 private:
  void ReadCapture(const std::string& path) {
    CaptureResult& result = captures_.emplace_back(CaptureResult{path, 0, ""});
    try {
      CaptureReader reader(path);
      CapturedPacket packet;
      while (reader.Next(&packet)) {
        setup_.lanes().RestIfEnding();
        ++result.packets;
        if (has_periods_) EndPeriods(packet.time);
        setup_.intake().Take(reader.LinkType(), packet);
        if (progress_.IsDue()) progress_.Show(path, reader.Position(), setup_.lanes().Records());
      }
    } catch (const HostError& error) {
      result.error = error.what();
      failed_ = true;
      console_.Error(error.what());
    }
    console_.ClearProgress();
  }

  // What a lane that is ending the process has counted never comes.
  void WaitForReports() {
    constexpr std::chrono::milliseconds kBetweenLooks(50);
    while (!reporter_.WaitBy(Reporter::Clock::now() + kBetweenLooks)) setup_.lanes().RestIfEnding();
  }

  // Captures that were given out of order begin a bucket of their own.
  void EndPeriods(Timestamp now) {
    if (!keepers_.empty() && schedule_.IsSetBack(now)) {
      WaitForReports();
      Reap({.from = schedule_.From(), .to = schedule_.To()});
    }
    if (schedule_.IsDue(now)) EndPeriod(now);
  }

  void EndPeriod(Timestamp now) {
    WaitForReports();  // reading runs ahead by one period at most
    const Schedule::Span span = schedule_.Take(now);
    Reap({.from = span.from,
          .to = span.to,
          .ends_interval = span.ends_interval,
          .shows = span.ends_interval});
  }

  void Reap(Tick tick) {
    tick.intake = setup_.intake().Reap();
    if (tick.shows || tick.is_last) tick.captures = captures_;
    if (tick.from == 0) tick.from = has_periods_ ? schedule_.From() : tick.intake.first;
    reporter_.Reap(setup_.lanes(), std::move(tick));
  }

  // In the middle of a datagram, in whichever thread the plug-in was called.
  void PluginEndedProcess() {
    console_.Error(
        "the plug-in ended the process because it cannot read a policy file; it says why on "
        "standard output");
    if (!is_reading_) return;
    if (!setup_.lanes().EndBy(Lanes::Clock::now() + std::chrono::seconds(2), false)) {
      setup_.lanes().RestForEver();
    }
    Tick tick{.intake = setup_.intake().Reap(), .is_last = true};
    tick.captures = captures_;
    tick.losses.queue = setup_.lanes().Dropped();
    tick.from = tick.intake.first;
    tick.to = tick.intake.last;
    reporter_.FinishHere(setup_.lanes(), tick);
  }

  const ReplayOptions& options_;
  Console console_;
  Progress progress_;
  MeterSetup setup_;
  OutputOptions output_;
  Schedule schedule_;
  ReplayedRun replayed_ = options_.clickhouse.url.empty() && options_.messages.kafka.brokers.empty()
                              ? ReplayedRun()
                              : RunOf(options_.meter, options_.captures);
  Keepers keepers_{options_.store, options_.clickhouse, options_.messages, setup_,
                   console_,       &replayed_};
  std::vector<CaptureResult> captures_;
  bool is_reading_ = false;  // captures
  bool has_periods_ = options_.interval != 0 || !keepers_.empty();
  RunReport report_{options_.interval == 0 ? RunKind::kWhole : RunKind::kPeriodic,
                    setup_.catalog().groups(),
                    setup_.site_settings().home,
                    setup_.stand_ins(),
                    output_,
                    keepers_.all(),
                    false,
                    console_};
  Reporter reporter_{[this](const Tick& tick, std::vector<Harvest> harvests) {
                       report_.Take(tick, std::move(harvests), progress_.Seconds());
                     },
                     [this](EarlyFlows flows) { report_.TakeEarly(std::move(flows)); }};
  bool failed_ = false;
};

}  // namespace

int RunReplay(const ReplayOptions& options) { return Replay(options).Run(); }

}  // namespace flow::host
