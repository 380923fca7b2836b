// SPDX-License-Identifier: Apache-2.0
#include "tests/support/recording_host.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "flowhandlers/identifiers.h"
#include "tests/support/host_trace.h"
#include "tests/support/policy_file.h"
#include "tests/support/recording_engine.h"
#include "tests/support/recording_site.h"

namespace flow::test {
namespace {

[[noreturn]] void Stop(const std::string& text) {
  std::fprintf(stderr, "recording host: %s\n", text.c_str());
  std::abort();
}

RecordingSite::Network ParseNetwork(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) Stop("no network: " + std::string(text));
  const Ip4 address(std::string(text.substr(0, slash)).c_str());
  const int length = std::atoi(std::string(text.substr(slash + 1)).c_str());
  return {address.value, length == 0 ? 0 : ~std::uint32_t{0} << (32 - length)};
}

}  // namespace

struct RecordingHost::State {
  State() {
    site.data_directory = site.work_directory = directory.Path();
    site.policies["CLSID_PI_NETFLOWMETER"] = site.policies["CLSID_PI_SFLOWMETER"] = policy.Path();
    engine.on_message = [this](const GUID& channel, std::span<const std::uint8_t> message) {
      Share(channel, message);
    };
  }

  // The library does not write to a message, but it is handed over as if it could.
  void Share(const GUID& channel, std::span<const std::uint8_t> message) {
    if (!shared) return;
    for (IArboUnknown* const listener : listeners) {
      if (listener != counting) DeliverCopy(listener, channel, message);
    }
  }

  static Status DeliverCopy(IArboUnknown* listener, const GUID& channel,
                            std::span<const std::uint8_t> message) {
    void* found = nullptr;
    if (listener->QueryInterface(IID_IOmbrelChannelListener, &found) != kStatusOk) {
      return kStatusNoInterface;
    }
    listener->Release();
    const auto copy = std::make_unique<std::uint8_t[]>(message.size());
    std::ranges::copy(message, copy.get());
    return static_cast<IOmbrelChannelListener*>(found)->OnChannelMessage(
        channel, static_cast<unsigned int>(message.size()), copy.get());
  }

  HostTrace trace;
  TempDirectory directory;
  PolicyFile policy;
  RecordingSite site{&trace};
  RecordingEngine engine{&trace};
  std::vector<IArboUnknown*> listeners;  // borrowed
  IArboUnknown* counting = nullptr;      // whose Count is running
  bool shared = false;
};

RecordingHost::RecordingHost() : state_(std::make_unique<State>()) {}

RecordingHost::~RecordingHost() = default;

RecordingHost& RecordingHost::Home(std::string_view network) {
  state_->site.home.push_back(ParseNetwork(network));
  return *this;
}

RecordingHost& RecordingHost::NoHome() {
  state_->site.home.clear();
  return *this;
}

RecordingHost& RecordingHost::Now(std::uint64_t seconds) {
  state_->engine.now = seconds;
  return *this;
}

RecordingHost& RecordingHost::Instance(long number) {
  state_->site.instance = number;
  return *this;
}

RecordingHost& RecordingHost::DataDirectory(std::optional<std::string> path) {
  state_->site.data_directory = std::move(path);
  return *this;
}

RecordingHost& RecordingHost::WorkDirectory(std::optional<std::string> path) {
  state_->site.work_directory = std::move(path);
  return *this;
}

RecordingHost& RecordingHost::Policy(std::string_view settings, std::string_view beside) {
  state_->policy.Write(settings, beside);
  return *this;
}

RecordingHost& RecordingHost::PolicyPath(const CLSID& owner, std::optional<std::string> path) {
  state_->site.policies[GuidName(owner)] = std::move(path);
  return *this;
}

RecordingHost& RecordingHost::Fail(std::string_view operation, Status status) {
  state_->trace.Failures().insert_or_assign(std::string(operation), status);
  return *this;
}

RecordingHost& RecordingHost::NoFail(std::string_view operation) {
  state_->trace.Failures().erase(std::string(operation));
  return *this;
}

RecordingHost& RecordingHost::SharedChannels(bool on) {
  state_->shared = on;
  return *this;
}

RecordingHost& RecordingHost::Connect(const Component& component) {
  state_->listeners.push_back(component.Unknown());
  return *this;
}

RecordingHost& RecordingHost::Disconnect(const Component& component) {
  std::erase(state_->listeners, component.Unknown());
  return *this;
}

RecordingHost& RecordingHost::AnyValue(bool on) {
  state_->engine.any_value = on;
  return *this;
}

RecordingHost& RecordingHost::WithQueries(bool on) {
  state_->trace.SetQueries(on);
  return *this;
}

RecordingHost& RecordingHost::Recording(bool on) {
  state_->trace.SetRecording(on);
  return *this;
}

RecordingHost& RecordingHost::KeepFaults() {
  state_->trace.KeepFaults();
  return *this;
}

Status RecordingHost::Attach(const Component& component) {
  return component.As<IOmbrelPlugin>()->AttachSite(&state_->site);
}

void RecordingHost::RequireAttached(Status status) {
  if (status != kStatusOk) Stop("AttachSite failed");
}

Status RecordingHost::Detach(const Component& component) {
  return component.As<IOmbrelPlugin>()->DetachSite();
}

Status RecordingHost::Count(const Component& meter, std::span<const std::uint8_t> payload,
                            const Exporter& from) {
  return CountPacket(meter, UdpHeaders(from, payload.size()), payload);
}

Status RecordingHost::CountPacket(const Component& meter, std::span<const std::uint8_t> headers,
                                  std::span<const std::uint8_t> payload) {
  const Packet packet(&state_->trace, headers, payload);
  state_->counting = meter.Unknown();
  const Status status = meter.As<IOmbrelSimpleCounter>()->Count(&state_->engine, packet.Payload());
  state_->counting = nullptr;
  packet.CheckUntouched();
  return status;
}

Status RecordingHost::CountWithoutIp(const Component& meter,
                                     std::span<const std::uint8_t> payload) {
  return CountPacket(meter, {}, payload);
}

RecordingHost::ParseResult RecordingHost::Parse(const Component& handler,
                                                std::span<const std::uint8_t> payload) {
  constexpr DISPOSITION_CODE_T kUntouched = 0xA5A5A5A5;
  const Packet packet(&state_->trace, UdpHeaders({}, payload.size()), payload);
  DISPOSITION_CODE_T disposition = kUntouched;
  const Status status = handler.As<IOmbrelProtHandler>()->GenerateParse(
      packet.Payload(), &disposition, packet.Context());
  packet.CheckUntouched();
  if (disposition == kUntouched) return {status, std::nullopt};
  return {status, disposition};
}

Status RecordingHost::Deliver(const Component& listener, const GUID& channel,
                              std::span<const std::uint8_t> message) {
  return State::DeliverCopy(listener.Unknown(), channel, message);
}

std::vector<std::string> RecordingHost::Take() { return state_->trace.TakeLines(); }

std::vector<std::string> RecordingHost::Take(std::string_view text) {
  std::vector<std::string> lines = Take();
  std::erase_if(lines,
                [text](const std::string& line) { return line.find(text) == std::string::npos; });
  return lines;
}

std::string RecordingHost::TakeText() {
  std::string text;
  for (const std::string& line : Take()) text += line + "\n";
  return text;
}

void RecordingHost::Forget() { Take(); }

std::vector<std::string> RecordingHost::Faults() const { return state_->trace.Faults(); }

int RecordingHost::SiteReferences() const { return state_->site.references; }

IOmbrelContainer* RecordingHost::Site() const { return &state_->site; }

IOmbrelStatsEngine* RecordingHost::Engine() const { return &state_->engine; }

HostTrace* RecordingHost::Trace() const { return &state_->trace; }

std::string RecordingHost::PolicyPath() const { return state_->policy.Path(); }

std::string RecordingHost::Directory() const { return state_->directory.Path(); }

}  // namespace flow::test
