#include "host/command/listen_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <utility>

#include "host/base/console.h"
#include "host/base/endpoint.h"
#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/command/exit_watch.h"
#include "host/command/lane_watch.h"
#include "host/command/meter_setup.h"
#include "host/command/policy_check.h"
#include "host/command/signals.h"
#include "host/intake/template_archive.h"
#include "host/intake/udp_socket.h"
#include "host/output/run_report.h"
#include "host/period/reporter.h"
#include "host/period/schedule.h"
#include "host/period/silence_watch.h"

namespace flow::host {
namespace {

Timestamp Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return Timestamp{now.tv_sec} * kMicrosPerSecond + now.tv_nsec / 1000;
}

std::int64_t NowSeconds() { return Now() / kMicrosPerSecond; }

// Without any, those that stand for all addresses of a family; a machine may do without IPv6.
std::vector<IpAddress> AddressesFrom(const std::vector<std::string>& texts) {
  std::vector<IpAddress> addresses;
  for (const std::string& text : texts) {
    const auto address = IpAddress::Parse(text);
    if (!address) throw UsageError(fmt::format("--bind: {} is no address", text));
    addresses.push_back(*address);
  }
  if (!addresses.empty()) return addresses;
  addresses.emplace_back();
  if (HasIpv6()) addresses.push_back(*IpAddress::Parse("::"));
  return addresses;
}

using Clock = std::chrono::steady_clock;

class Listen {
 public:
  explicit Listen(const ListenOptions& options)
      : options_(options),
        addresses_(AddressesFrom(options.bind)),
        console_(options.meter.log_level),
        setup_(options.meter, "", console_),
        output_(options.output),
        schedule_(setup_.catalog().ShortestBucket(),
                  Timestamp{options.interval} * kMicrosPerSecond) {
    output_.report.group_ids = setup_.GroupIds(output_.report.group_ids);
    console_.Queue();
    if (options.state_directory.empty()) return;
    archive_.emplace(options.state_directory);
    archive_->Open();
  }

  ~Listen() { signals_.OnLate(nullptr); }
  Listen(const Listen&) = delete;
  Listen& operator=(const Listen&) = delete;

  int Run() {
    signals_.OnLate([this] { EndLate(); });
    const ExitWatch watch([this] { PluginEndedProcess(); }, [this] { setup_.lanes().RestHere(); });
    setup_.Start(LaneMode::kDrop);
    OpenSockets();
    RestoreTemplates();
    setup_.lanes().ForEach([](Lane& lane) { lane.WatchPolicies(Now()); });
    schedule_.IsDue(Now());
    while (!ending_ && !sockets_.empty()) Step();
    return End();
  }

 private:
  struct Port {
    std::unique_ptr<UdpSocket> socket;
    const IID* protocol;
  };

  void OpenSockets();
  bool OpenSocket(const Endpoint& here, const IID& protocol);
  void RestoreTemplates();
  void Step();
  bool Receive(Port* port, int most_batches);
  void TakeSignals();
  void CheckPolicies();
  void TakeCheckResult();
  void Watch();
  void EndPeriod(Timestamp now);
  void Reap(Tick tick);
  Losses TakeLosses();
  void SaveTemplates();
  int End();
  void ReceiveRest(Clock::time_point until);
  void EndLanes(Clock::time_point deadline);
  void PluginEndedProcess();
  void EndLate();

  const ListenOptions& options_;
  std::vector<IpAddress> addresses_;
  Signals signals_;  // before any thread
  Console console_;
  MeterSetup setup_;
  LaneWatch lane_watch_{console_, setup_.stand_ins()};
  OutputOptions output_;
  Schedule schedule_;
  std::optional<TemplateArchive> archive_;
  std::vector<Port> sockets_;
  ReceiveBuffers buffers_;
  Timestamp period_start_ = Now();
  std::uint64_t queue_drops_told_ = 0;
  PortDrops lost_with_sockets_;
  std::optional<PolicyCheck> check_;
  bool check_again_ = false;
  bool told_overflow_ = false;
  bool wants_summary_ = false;
  bool failed_ = false;
  bool ending_ = false;
  Clock::time_point next_watch_;
  RunReport report_{RunKind::kPeriodic,
                    setup_.catalog().groups(),
                    setup_.site_settings().home,
                    setup_.stand_ins(),
                    output_,
                    true,
                    console_};
  SilenceWatch silence_{Timestamp{options_.silent_after} * kMicrosPerSecond, setup_.stand_ins(),
                        [this](const std::string& text) { console_.Notice(text); }};
  Outlet templates_{fmt::format("the directory {}", options_.state_directory),
                    Outlet::Keeps::kNewest, true, console_};
  Reporter reporter_{[this](const Tick& tick, std::vector<Harvest> harvests) {
    SaveTemplates();
    silence_.Take(tick.to, harvests);
    report_.Take(tick, std::move(harvests), 0);
  }};
};

bool Listen::OpenSocket(const Endpoint& here, const IID& protocol) {
  try {
    sockets_.push_back({std::make_unique<UdpSocket>(here, options_.receive_buffer), &protocol});
    return true;
  } catch (const HostError& error) {
    failed_ = true;
    console_.Error(error.what());
    return false;
  }
}

void Listen::OpenSockets() {
  const auto wanted = PortsToListenOn(setup_.components(), options_.meter.extra_ports);
  for (const IpAddress& address : addresses_) {
    std::vector<std::string> names;
    for (const ProtocolPort& port : wanted) {
      const auto& handler = *port.handler->handler;
      if (!OpenSocket({address, port.port}, handler.protocol)) continue;
      names.push_back(fmt::format("{} ({})", port.port, handler.name));
    }
    if (names.empty()) continue;
    console_.Notice(
        fmt::format("listening on {}, UDP ports {}", address.Text(), fmt::join(names, ", ")));
  }
  if (sockets_.empty()) throw HostError("there is no port to listen on");
  std::size_t smallest = options_.receive_buffer;
  for (const Port& port : sockets_) smallest = std::min(smallest, port.socket->receive_buffer());
  if (smallest < options_.receive_buffer) {
    console_.Notice(
        fmt::format("the kernel grants sockets {} of the {} wanted for bursts; raise "
                    "net.core.rmem_max for more",
                    SiBytes(smallest), SiBytes(options_.receive_buffer)));
  }
}

void Listen::RestoreTemplates() {
  if (!archive_) return;
  std::string trouble;
  setup_.stand_ins().KeepIn(options_.state_directory, NowSeconds(), &trouble);
  if (!trouble.empty()) console_.Error(std::exchange(trouble, ""));
  archive_->Load(NowSeconds(), &trouble);
  if (!trouble.empty()) console_.Error(trouble);
  // A stand-in of nobody will be another exporter's.
  archive_->Forget([this](const IpAddress& exporter) {
    return StandIns::IsOne(exporter) && setup_.stand_ins().RealOf(exporter) == exporter;
  });
  const auto messages = archive_->Messages();
  for (const auto& message : messages) {
    setup_.channels().Deliver(
        0, message->has_domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
        message->bytes);
  }
  if (!messages.empty()) {
    console_.Notice(fmt::format("{} templates restored from {}", Thousands(archive_->templates()),
                                archive_->path()));
  }
  setup_.channels().Observe([this](const GUID& channel, const std::vector<std::uint8_t>& message) {
    if (IsTemplateChannel(channel)) archive_->Note({message, HasDomain(channel)}, NowSeconds());
  });
}

// Step waits for whatever comes next and takes it.
void Listen::Step() {
  if (setup_.lanes().IsEnding()) {
    ReceiveRest(Clock::now() + std::chrono::milliseconds(200));  // which counts as dropped
    setup_.lanes().RestIfEnding();
  }
  constexpr int kMostWait = 250;    // milliseconds; periods end about as late
  constexpr int kGatheredWait = 2;  // while a busy lane leaves datagrams gathered
  const bool gathered = setup_.lanes().PushIdle();
  std::vector<pollfd> polled{{signals_.descriptor(), POLLIN, 0}};
  for (const Port& port : sockets_) polled.push_back({port.socket->descriptor(), POLLIN, 0});
  poll(polled.data(), polled.size(), gathered ? kGatheredWait : kMostWait);

  if (polled[0].revents != 0) TakeSignals();
  constexpr int kBatches = 16;  // from one socket before it is the others' turn
  for (std::size_t i = sockets_.size(); i-- > 0;) {
    if (polled[i + 1].revents == 0) continue;
    try {
      Receive(&sockets_[i], kBatches);
    } catch (const HostError& error) {
      failed_ = true;
      console_.Error(error.what());
      lost_with_sockets_[sockets_[i].socket->port()] += sockets_[i].socket->TakeDrops();
      sockets_.erase(sockets_.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
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
  lane_watch_.Look(setup_.lanes());
  report_.Watch();
  templates_.Watch();
  console_.Sum();
}

// True when more may be waiting.
bool Listen::Receive(Port* port, int most_batches) {
  const auto take = [&](const UdpPacket& packet) { setup_.intake().Take(*port->protocol, packet); };
  for (int i = 0; i < most_batches; ++i) {
    if (port->socket->Receive(&buffers_, Now(), take) < ReceiveBuffers::kDatagrams) return false;
  }
  return true;
}

void Listen::TakeSignals() {
  while (const std::optional<int> signal = signals_.Take()) {
    switch (*signal) {
      case SIGUSR1:
        wants_summary_ = true;
        break;
      case SIGHUP:
        CheckPolicies();
        break;
      case SIGCHLD:
        TakeCheckResult();
        break;
      default:
        ending_ = true;
    }
  }
}

// A meter that reads a broken policy ends the process, so another process reads it first.
void Listen::CheckPolicies() {
  check_again_ = check_.has_value();  // one is under way, and may have read what was there before
  if (check_) return;
  try {
    check_.emplace(setup_.plugin_path(), setup_.site_settings());
  } catch (const HostError& error) {
    console_.Error(error.what());
  }
}

void Listen::TakeCheckResult() {
  if (!check_) return;
  const std::optional<bool> usable = check_->Result();
  if (!usable) return;
  check_.reset();
  if (check_again_) return CheckPolicies();
  if (!*usable) {
    console_.Error(
        "SIGHUP: nothing is reloaded: a policy cannot be used, see above; the one in force stays");
    return;
  }
  setup_.lanes().ForEach([this](Lane& lane) {
    for (const std::string& told : lane.LookAtPolicies(Now())) {
      console_.Notice(fmt::format("SIGHUP: {}", told));
    }
  });
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
  losses.kernel = std::exchange(lost_with_sockets_, {});
  for (const Port& port : sockets_) losses.kernel[port.socket->port()] += port.socket->TakeDrops();
  const std::uint64_t queue = setup_.lanes().Dropped();
  losses.queue = queue - std::exchange(queue_drops_told_, queue);
  return losses;
}

void Listen::SaveTemplates() {
  if (!archive_) return;
  if (archive_->TakeOverflow() && !std::exchange(told_overflow_, true)) {
    console_.Notice("there are more, or larger, templates than are kept across restarts");
  }
  templates_.Take([this] {
    setup_.stand_ins().Save();
    archive_->Save(NowSeconds());
  });
}

// What the kernel has taken so far is metered before the end; senders may go on for ever.
void Listen::ReceiveRest(Clock::time_point until) {
  for (Port& port : sockets_) {
    try {
      while (Receive(&port, 1) && Clock::now() < until) {
      }
    } catch (const HostError& error) {
      failed_ = true;
      console_.Error(error.what());
    }
  }
}

// Every part of the end has its time, and together they have less than the signals' thread grants.
int Listen::End() {
  using namespace std::chrono_literals;
  const auto start = Clock::now();
  ReceiveRest(start + 1s);
  setup_.lanes().Push();
  Reap({.from = period_start_, .to = Now(), .is_last = true});
  const bool is_in_time = reporter_.WaitBy(start + 5s);
  if (!is_in_time) EndLanes(start + 6s);
  const auto deadline = start + 9s;
  std::vector<Outlet*> left = report_.FinishBy(deadline);
  if (!templates_.FinishBy(deadline)) left.push_back(&templates_);
  for (Outlet* const outlet : left) {
    console_.Error(fmt::format("{} takes nothing: {} reports are not written", outlet->name(),
                               Thousands(outlet->Waiting())));
  }
  if (sockets_.empty()) console_.Error("no socket is left");
  failed_ = failed_ || sockets_.empty() || !left.empty() || !report_.Succeeded() ||
            !templates_.Succeeded();
  const int status = failed_ ? kExitTrouble : kExitOk;
  if (is_in_time && left.empty()) return status;
  static_cast<void>(console_.FinishBy(start + 9500ms));
  std::_Exit(status);  // past threads that will not end
}

// A lane that is still at work has too much to do, or is at one datagram.
void Listen::EndLanes(Clock::time_point deadline) {
  const std::uint64_t before = setup_.lanes().Dropped();
  setup_.lanes().EndBy(deadline, true);
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

// In the middle of a datagram, in a lane's thread.
void Listen::PluginEndedProcess() {
  using namespace std::chrono_literals;
  const auto start = Clock::now();
  console_.Error(
      "the plug-in ended the process because it cannot read a policy file; it says why on "
      "standard output");
  if (!sockets_.empty()) {
    setup_.lanes().EndBy(start + 2s, false);
    lane_watch_.TellLost(setup_.lanes().Busy());
    Tick tick{.from = period_start_, .to = Now(), .is_last = true};
    tick.intake = setup_.intake().Reap();
    tick.losses = TakeLosses();
    reporter_.FinishHere(setup_.lanes(), tick);
    for (const Outlet* const outlet : report_.FinishBy(start + 8s)) {
      console_.Error(fmt::format("{} takes nothing", outlet->name()));
    }
    static_cast<void>(templates_.FinishBy(start + 8s));
  }
  static_cast<void>(console_.FinishBy(start + 9s));
}

// In the thread of the signals: the one of the intake hangs.
void Listen::EndLate() {
  console_.Error(
      fmt::format("ended by force, {} seconds after the signal", Signals::kLongestEnd.count()));
  static_cast<void>(console_.FinishBy(Clock::now() + std::chrono::milliseconds(200)));
}

}  // namespace

int RunListen(const ListenOptions& options) { return Listen(options).Run(); }

}  // namespace flow::host
