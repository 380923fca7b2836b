// SPDX-License-Identifier: Apache-2.0
#include "host/command/listen_command.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <span>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/heap_account.h"
#include "host/base/memory_budget.h"
#include "host/base/number_text.h"
#include "host/command/exit_watch.h"
#include "host/command/kept_templates.h"
#include "host/command/lane_watch.h"
#include "host/command/listen_ports.h"
#include "host/command/listen_web.h"
#include "host/command/memory_watch.h"
#include "host/command/meter_setup.h"
#include "host/command/open_keepers.h"
#include "host/command/policy_check.h"
#include "host/command/policy_reload.h"
#include "host/command/sandbox.h"
#include "host/command/service_notice.h"
#include "host/command/shared_templates.h"
#include "host/command/signals.h"
#include "host/engine/large_memory.h"
#include "host/output/run_report.h"
#include "host/period/reporter.h"
#include "host/period/schedule.h"
#include "host/period/silence_watch.h"

namespace flow::host {
namespace {

Timestamp Now() { return NowMicros(); }

using Clock = std::chrono::steady_clock;

// Before a store is opened, or a port.
OutputOptions Prepared(OutputOptions output, const MeterSetup& setup) {
  output.report.group_ids = setup.GroupIds(output.report.group_ids);
  Prepare(output.destinations, Existing::kContinue);
  return output;
}

class Listen {
 public:
  Listen(const ListenOptions& options, std::size_t memory)
      : options_(options),
        allowed_(options.allow),
        console_(options.meter.log_level),
        setup_(options.meter, "", console_),
        memory_watch_(memory, console_),
        output_(Prepared(options.output, setup_)),
        schedule_(setup_.catalog().ShortestBucket(),
                  Timestamp{options.interval} * kMicrosPerSecond) {
    console_.Queue();
  }

  ~Listen() { signals_.OnLate(nullptr); }
  Listen(const Listen&) = delete;
  Listen& operator=(const Listen&) = delete;

  int Run() {
    signals_.OnLate([this] { EndLate(); });
    const ExitWatch watch([this] { PluginEndedProcess(); }, [this] { setup_.lanes().RestHere(); });
    templates_.NoteUse();
    shared_.Hear();
    setup_.Start(LaneMode::kDrop);
    if (!keepers_.empty()) {
      reporter_.TakeFlowsEarly(setup_.lanes());
    } else if (!output_.report.split_flows) {
      setup_.lanes().ShowFlows();
    }
    web_.emplace(options_.web, keepers_.store(), setup_.lanes(), setup_.stand_ins(), console_);
    report_.Observe([this](const Tick& tick, const std::vector<Harvest>& harvests) {
      web_->Take(tick, harvests);
    });
    OpenPorts();
    is_listening_ = true;
    templates_.Restore();
    shared_.Start([this] {
      TakeSignals();
      return ending_;
    });
    setup_.lanes().ForEach([](Lane& lane) { lane.WatchPolicies(Now()); });
    schedule_.IsDue(Now());
    if (options_.is_restricted) EnterSandbox(LaterUses(), console_);
    service_.Ready();
    while (!ending_ && !ports_.empty()) Step();
    service_.Stopping();
    return End();
  }

 private:
  void OpenPorts();
  [[nodiscard]] std::vector<LaterUse> LaterUses() const;
  void Step();
  void TakeSignals();
  void Watch();
  void EndPeriod(Timestamp now);
  void Reap(Tick tick);
  Losses TakeLosses();
  int End();
  bool WaitForReports(Clock::time_point deadline);
  void EndLanes(Clock::time_point deadline);
  void ClosePorts();
  void PluginEndedProcess();
  void EndLate();

  const ListenOptions& options_;
  HomeRanges allowed_;
  PolicyCheck check_{options_.meter};  // before any thread
  ServiceNotice service_;              // likewise
  Signals signals_;                    // and this one
  Console console_;
  MeterSetup setup_;
  LaneWatch lane_watch_{console_, setup_.stand_ins()};
  MemoryWatch memory_watch_;
  OutputOptions output_;
  Schedule schedule_;
  KeptTemplates templates_{options_.state_directory, setup_, console_};
  ListenPorts ports_{options_, console_};
  ListenPorts::Visit take_ = [this](const IID& protocol, const UdpPacket& packet) {
    setup_.intake().Take(protocol, packet);
  };
  Timestamp period_start_ = Now();
  std::uint64_t queue_drops_told_ = 0;
  bool wants_summary_ = false;
  bool failed_ = false;
  bool ending_ = false;
  bool is_listening_ = false;
  std::atomic<bool> plugin_ended_process_ = false;
  Clock::time_point next_watch_;
  Clock::time_point next_policy_check_;
  Keepers keepers_{options_.store, options_.clickhouse, options_.messages, setup_, console_,
                   nullptr};
  SharedTemplates shared_{options_.messages.kafka, keepers_, setup_, console_};
  RunReport report_{RunKind::kPeriodic,
                    setup_.catalog().groups(),
                    setup_.site_settings().home,
                    setup_.stand_ins(),
                    output_,
                    keepers_.all(),
                    true,
                    console_};
  SilenceWatch silence_{Timestamp{options_.silent_after} * kMicrosPerSecond, setup_.stand_ins(),
                        [this](const std::string& text) { console_.Notice(text); }};
  PolicyReload policies_{check_, setup_, console_};
  std::optional<ListenWeb> web_;
  Reporter reporter_{[this](const Tick& tick, std::vector<Harvest> harvests) {
                       const auto start = Clock::now();
                       templates_.Save();
                       silence_.Take(tick.to, harvests);
                       report_.Take(tick, std::move(harvests), 0);
                       const std::chrono::duration<double> took = Clock::now() - start;
                       web_->NoteReport(took.count());
                     },
                     [this](EarlyFlows flows) { report_.TakeEarly(std::move(flows)); }};
};

void Listen::OpenPorts() {
  ports_.Open(setup_.components());
  if (options_.allow.empty()) {
    console_.Notice("datagrams of anybody are metered; --allow names who may send");
  } else {
    setup_.intake().AllowOnly(allowed_);
  }
}

std::vector<LaterUse> Listen::LaterUses() const {
  const SiteSettings& site = setup_.site_settings();
  std::vector<LaterUse> uses = UsesOf(options_.web);
  uses.push_back({site.config_directory});
  uses.push_back({site.data_directory});
  uses.push_back({site.work_directory, true});
  uses.push_back({options_.state_directory, true});
  uses.push_back({options_.store.directory, true});
  uses.push_back({options_.clickhouse.spool, true});
  for (const Destination& destination : output_.destinations) {
    if (destination.IsStandardOutput()) continue;
    uses.push_back({destination.place, true});
    uses.push_back({std::filesystem::path(destination.place).parent_path(), true});
  }
  return uses;
}

// Step waits for whatever comes next and takes it.
void Listen::Step() {
  if (setup_.lanes().IsEnding()) {
    ports_.ReceiveRest(Clock::now() + std::chrono::milliseconds(200),
                       take_);  // which counts as dropped
    setup_.lanes().RestIfEnding();
  }
  constexpr int kMostWait = 250;    // milliseconds; periods end about as late
  constexpr int kGatheredWait = 2;  // while a busy lane leaves datagrams gathered
  const bool gathered = setup_.lanes().PushIdle();
  std::vector<pollfd> polled{{signals_.descriptor(), POLLIN, 0}, {check_.descriptor(), POLLIN, 0}};
  ports_.AddTo(&polled);
  poll(polled.data(), polled.size(), gathered ? kGatheredWait : kMostWait);

  if (polled[0].revents != 0) TakeSignals();
  if (polled[1].revents != 0) {
    if (const auto usable = policies_.Look()) web_->NoteReload(*usable);
  }
  ports_.Receive(std::span(polled).subspan(2), take_);
  Watch();
  // A report that takes longer than a period makes the next one longer.
  const Timestamp now = Now();
  period_start_ = std::min(period_start_, now);  // a clock may be set back
  const bool is_due = schedule_.IsDue(now);
  if ((!is_due && !wants_summary_) || reporter_.IsBusy()) return;
  if (is_due) EndPeriod(now);
  if (std::exchange(wants_summary_, false)) {
    Reap({.from = period_start_, .to = now, .shows = true});
  }
}

void Listen::Watch() {
  const auto now = Clock::now();
  if (now < next_watch_) return;
  next_watch_ = now + std::chrono::seconds(1);
  service_.Alive(now);
  lane_watch_.Look(setup_.lanes());
  memory_watch_.Look();
  constexpr std::chrono::seconds kBetweenChecks(60);
  if (setup_.lanes().WaitForPolicies() && now >= next_policy_check_) {
    next_policy_check_ = now + kBetweenChecks;
    console_.Notice("a meter is to be replaced, and the policies were edited: they are checked");
    policies_.Ask();
  }
  report_.Watch();
  templates_.outlet().Watch();
  console_.Sum();
}

void Listen::TakeSignals() {
  while (const std::optional<int> signal = signals_.Take()) {
    switch (*signal) {
      case SIGUSR1:
        wants_summary_ = true;
        break;
      case SIGHUP:
        policies_.Ask();
        break;
      default:
        ending_ = true;
    }
  }
}

void Listen::EndPeriod(Timestamp now) {
  const Schedule::Span span = schedule_.Take(now);
  Reap({.from = period_start_,
        .to = span.to,
        .ends_interval = span.ends_interval,
        .shows = span.ends_interval});
}

void Listen::Reap(Tick tick) {
  period_start_ = tick.to;
  tick.intake = setup_.intake().Reap();
  tick.losses = TakeLosses();
  reporter_.Reap(setup_.lanes(), std::move(tick));
}

Losses Listen::TakeLosses() {
  Losses losses;
  losses.kernel = ports_.TakeDrops();
  const std::uint64_t queue = setup_.lanes().Dropped();
  losses.queue = queue - std::exchange(queue_drops_told_, queue);
  return losses;
}

// Every part of the end has its time, and together they have less than the signals' thread grants.
int Listen::End() {
  using namespace std::chrono_literals;
  const auto start = Clock::now();
  ports_.ReceiveRest(start + 1s, take_);
  setup_.lanes().Push();
  Reap({.from = period_start_, .to = Now(), .is_last = true});
  const bool is_in_time = WaitForReports(start + 5s);
  if (!is_in_time) EndLanes(start + 6s);
  const auto deadline = start + 8s;
  std::vector<Outlet*> left = report_.FinishBy(deadline);
  if (!templates_.outlet().FinishBy(deadline)) left.push_back(&templates_.outlet());
  shared_.End();
  const std::vector<std::string> late = keepers_.FinishBy(deadline);
  for (const std::string& name : late) {
    console_.Error(fmt::format("{} takes too long: its last minutes are not written", name));
  }
  const bool is_stored = late.empty();
  for (Outlet* const outlet : left) {
    const std::size_t waiting = outlet->Waiting();
    console_.Error(fmt::format("{} takes nothing: {} report{} not written", outlet->name(),
                               Thousands(waiting), waiting == 1 ? " is" : "s are"));
  }
  if (ports_.empty()) console_.Error("no socket is left");
  memory_watch_.TellAll();
  failed_ = failed_ || plugin_ended_process_ || ports_.HasFailed() || ports_.empty() ||
            !left.empty() || !is_stored || !report_.Succeeded() || !templates_.outlet().Succeeded();
  ClosePorts();
  const int status = failed_ ? kExitTrouble : kExitOk;
  if (is_in_time && is_stored && left.empty()) return status;
  static_cast<void>(console_.FinishBy(start + 8500ms));
  std::_Exit(status);  // past threads that will not end
}

// What a lane that is ending the process has counted never comes.
bool Listen::WaitForReports(Clock::time_point deadline) {
  constexpr std::chrono::milliseconds kBetweenLooks(50);
  while (!reporter_.WaitBy(std::min(deadline, Clock::now() + kBetweenLooks))) {
    setup_.lanes().RestIfEnding();
    if (Clock::now() >= deadline) return false;
  }
  return true;
}

// A lane that is still at work has too much to do, or is at one datagram.
void Listen::EndLanes(Clock::time_point deadline) {
  const std::uint64_t before = setup_.lanes().Dropped();
  if (!setup_.lanes().EndBy(deadline, true)) setup_.lanes().RestIfEnding();
  const auto busy = setup_.lanes().Busy();
  lane_watch_.TellLost(busy);
  failed_ = failed_ || !busy.empty();
  const std::uint64_t left = setup_.lanes().Dropped() - before;
  if (left > 0) {
    console_.Notice(
        fmt::format("{} datagrams that waited for a meter are not metered", Thousands(left)));
  }
  Tick tick{.from = period_start_, .to = Now(), .is_last = true};
  tick.losses = TakeLosses();
  reporter_.FinishHere(setup_.lanes(), tick);
}

// When nothing else is left to wait for.
void Listen::ClosePorts() {
  const std::uint64_t late = ports_.Close();
  if (late == 0) return;
  console_.Notice(fmt::format("{} datagram{} that arrived late, while it ended, {} not metered",
                              Thousands(late), late == 1 ? "" : "s", late == 1 ? "is" : "are"));
}

// In the middle of a datagram, in a lane's thread; where the intake has given the lane up, that one
// has the last word.
void Listen::PluginEndedProcess() {
  using namespace std::chrono_literals;
  const auto start = Clock::now();
  console_.Error(
      "the plug-in ended the process because it cannot read a policy file; it says why on "
      "standard output");
  plugin_ended_process_ = true;
  if (is_listening_) {
    if (!setup_.lanes().EndBy(start + 2s, false)) setup_.lanes().RestForEver();
    lane_watch_.TellLost(setup_.lanes().Busy());
    Tick tick{.from = period_start_, .to = Now(), .is_last = true};
    tick.intake = setup_.intake().Reap();
    tick.losses = TakeLosses();
    reporter_.FinishHere(setup_.lanes(), tick);
    for (const Outlet* const outlet : report_.FinishBy(start + 8s)) {
      console_.Error(fmt::format("{} takes nothing", outlet->name()));
    }
    static_cast<void>(templates_.outlet().FinishBy(start + 8s));
    static_cast<void>(keepers_.FinishBy(start + 8s));
    if (setup_.lanes().IntakeRests()) ClosePorts();
  }
  static_cast<void>(console_.FinishBy(start + 8500ms));
}

// In the thread of the signals: the one of the intake hangs.
void Listen::EndLate() {
  console_.Error(
      fmt::format("ended by force, {} seconds after the signal", Signals::kLongestEnd.count()));
  static_cast<void>(console_.FinishBy(Clock::now() + std::chrono::milliseconds(200)));
}

}  // namespace

int RunListen(const ListenOptions& options) {
  const std::size_t memory = options.memory == 0 ? DefaultMemory() : options.memory;
  KeepHeapSmall(memory);
  KeepSpareMemory(std::min(memory / 16, std::size_t{256} << 20));
  ShareMemory(memory, static_cast<std::size_t>(options.meter.instances));
  return Listen(options, memory).Run();
}

}  // namespace flow::host
