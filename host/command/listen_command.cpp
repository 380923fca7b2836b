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

  int Run() {
    const ExitWatch watch([this] { PluginEndedProcess(); });
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
  void Receive(Port* port, int most_batches);
  void TakeSignals();
  void CheckPolicies();
  void TakeCheckResult();
  void EndPeriod(Timestamp now);
  void Reap(Tick tick);
  Losses TakeLosses();
  void SaveTemplates();
  int End();
  void PluginEndedProcess();

  const ListenOptions& options_;
  std::vector<IpAddress> addresses_;
  Signals signals_;  // before any thread
  Console console_;
  MeterSetup setup_;
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
  std::atomic<bool> failed_ = false;
  bool ending_ = false;
  RunReport report_{RunKind::kPeriodic,
                    setup_.catalog().groups(),
                    setup_.site_settings().home,
                    setup_.stand_ins(),
                    output_,
                    true,
                    console_};
  SilenceWatch silence_{Timestamp{options_.silent_after} * kMicrosPerSecond, setup_.stand_ins(),
                        [this](const std::string& text) { console_.Notice(text); }};
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
  console_.Sum();
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

void Listen::Receive(Port* port, int most_batches) {
  const auto take = [&](const UdpPacket& packet) { setup_.intake().Take(*port->protocol, packet); };
  for (int i = 0; i < most_batches; ++i) {
    if (port->socket->Receive(&buffers_, Now(), take) < ReceiveBuffers::kDatagrams) return;
  }
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
        Signals::LetInterrupt();
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
  try {
    setup_.stand_ins().Save();
    archive_->Save(NowSeconds());
  } catch (const HostError& error) {
    failed_ = true;
    console_.Error(error.what());
  }
}

// What the kernel has taken so far is metered before the end; senders may go on for ever.
int Listen::End() {
  constexpr int kMostBatches = 4096;
  constexpr std::chrono::seconds kLongestReport(45);
  for (Port& port : sockets_) {
    try {
      Receive(&port, kMostBatches);
    } catch (const HostError& error) {
      failed_ = true;
      console_.Error(error.what());
    }
  }
  setup_.lanes().Push();
  Reap({.from = period_start_, .to = Now(), .is_last = true});
  if (!reporter_.WaitFor(kLongestReport)) {
    console_.Error("the summary cannot be written: nobody reads standard output");
    std::_Exit(kExitTrouble);
  }
  if (sockets_.empty()) console_.Error("no socket is left");
  return sockets_.empty() || failed_ || !report_.Succeeded() ? kExitTrouble : kExitOk;
}

// In the middle of a datagram, in a lane's thread.
void Listen::PluginEndedProcess() {
  console_.Error(
      "the plug-in ended the process because it cannot read a policy file; it says why on "
      "standard output");
  if (sockets_.empty()) return;
  setup_.lanes().EndHere();
  Tick tick{.from = period_start_, .to = Now(), .is_last = true};
  tick.intake = setup_.intake().Reap();
  tick.losses = TakeLosses();
  reporter_.FinishHere(setup_.lanes(), tick);
}

}  // namespace

int RunListen(const ListenOptions& options) { return Listen(options).Run(); }

}  // namespace flow::host
