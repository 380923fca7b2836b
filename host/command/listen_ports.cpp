// SPDX-License-Identifier: Apache-2.0
#include "host/command/listen_ports.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/number_text.h"

namespace flow::host {
namespace {

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

}  // namespace

Timestamp NowMicros() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return Timestamp{now.tv_sec} * kMicrosPerSecond + now.tv_nsec / 1000;
}

ListenPorts::ListenPorts(const ListenOptions& options, Console& console)
    : options_(options), console_(console), addresses_(AddressesFrom(options.bind)) {}

bool ListenPorts::OpenOne(const Endpoint& here, const IID& protocol) {
  try {
    sockets_.push_back({std::make_unique<UdpSocket>(here, options_.receive_buffer), &protocol});
    return true;
  } catch (const HostError& error) {
    has_failed_ = true;
    console_.Error(error.what());
    return false;
  }
}

void ListenPorts::Open(std::span<const ComponentDescription> components) {
  const auto wanted = PortsToListenOn(components, options_.meter.extra_ports);
  for (const IpAddress& address : addresses_) {
    std::vector<std::string> names;
    for (const ProtocolPort& port : wanted) {
      const auto& handler = *port.handler->handler;
      if (!OpenOne({address, port.port}, handler.protocol)) continue;
      names.push_back(fmt::format("{} ({})", port.port, handler.name));
    }
    if (names.empty()) continue;
    console_.Notice(
        fmt::format("listening on {}, UDP ports {}", address.Text(), fmt::join(names, ", ")));
  }
  if (sockets_.empty()) throw HostError("there is no port to listen on");
  TellBuffers();
}

void ListenPorts::TellBuffers() {
  std::size_t smallest = options_.receive_buffer;
  for (const Port& port : sockets_) smallest = std::min(smallest, port.socket->receive_buffer());
  if (smallest >= options_.receive_buffer) return;
  console_.Notice(
      fmt::format("the kernel grants sockets {} of the {} wanted for bursts; raise "
                  "net.core.rmem_max for more",
                  SiBytes(smallest), SiBytes(options_.receive_buffer)));
}

void ListenPorts::AddTo(std::vector<pollfd>* polled) const {
  for (const Port& port : sockets_) polled->push_back({port.socket->descriptor(), POLLIN, 0});
}

void ListenPorts::Receive(std::span<const pollfd> polled, const Visit& visit) {
  constexpr int kBatches = 16;  // from one socket before it is the others' turn
  for (std::size_t i = sockets_.size(); i-- > 0;) {
    if (polled[i].revents == 0) continue;
    try {
      ReceiveFrom(&sockets_[i], kBatches, visit);
    } catch (const HostError& error) {
      has_failed_ = true;
      console_.Error(error.what());
      lost_with_sockets_[sockets_[i].socket->port()] += sockets_[i].socket->TakeDrops();
      sockets_.erase(sockets_.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
}

void ListenPorts::ReceiveRest(Clock::time_point until, const Visit& visit) {
  Shut();
  for (Port& port : sockets_) {
    try {
      while (ReceiveFrom(&port, 1, visit) && Clock::now() < until) {
      }
    } catch (const HostError& error) {
      has_failed_ = true;
      console_.Error(error.what());
    }
  }
}

void ListenPorts::Shut() {
  if (is_shut_) return;
  lost_with_sockets_ = TakeDrops();
  for (const Port& port : sockets_) port.socket->Shut();
  is_shut_ = true;
}

std::uint64_t ListenPorts::Close() {
  Shut();
  std::uint64_t late = 0;
  for (const Port& port : sockets_) late += port.socket->Discard() + port.socket->TakeDrops();
  sockets_.clear();
  return late;
}

// True when more may be waiting.
bool ListenPorts::ReceiveFrom(Port* port, int most_batches, const Visit& visit) {
  const auto take = [&](const UdpPacket& packet) { visit(*port->protocol, packet); };
  for (int i = 0; i < most_batches; ++i) {
    const std::size_t received = port->socket->Receive(&buffers_, NowMicros(), take);
    if (received < ReceiveBuffers::kDatagrams) return false;
  }
  return true;
}

PortDrops ListenPorts::TakeDrops() {
  PortDrops drops = std::exchange(lost_with_sockets_, {});
  if (is_shut_) return drops;
  for (const Port& port : sockets_) drops[port.socket->port()] += port.socket->TakeDrops();
  return drops;
}

}  // namespace flow::host
