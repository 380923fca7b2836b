// SPDX-License-Identifier: Apache-2.0
// The sockets of a collector.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/border/component_catalog.h"
#include "host/command/options.h"
#include "host/intake/udp_socket.h"
#include "host/period/kernel_drops.h"

namespace flow::host {

class Console;

class ListenPorts {
 public:
  using Clock = std::chrono::steady_clock;
  using Visit = std::function<void(const IID& protocol, const UdpPacket& packet)>;

  // UsageError for an address that is none. All outlive the ports.
  ListenPorts(const ListenOptions& options, Console& console);

  // Open opens what the handlers prefer, or the user wants, at every address, and tells. HostError
  // when there is nothing to listen on.
  void Open(std::span<const ComponentDescription> components);

  [[nodiscard]] bool empty() const { return sockets_.empty(); }
  // Whether a socket could not be had, or broke.
  [[nodiscard]] bool HasFailed() const { return has_failed_; }

  // AddTo adds the sockets to what is polled; Receive takes from those that have something, in
  // turns.
  void AddTo(std::vector<pollfd>* polled) const;
  void Receive(std::span<const pollfd> polled, const Visit& visit);

  // ReceiveRest takes what has arrived so far, for as long as there is time; nothing more is taken
  // from then on.
  void ReceiveRest(Clock::time_point until, const Visit& visit);
  // Close closes the sockets. How many datagrams were not taken: those that there was no time for,
  // and what has arrived since.
  std::uint64_t Close();

  // Datagrams that sockets dropped since it was last asked, until ReceiveRest.
  PortDrops TakeDrops();

 private:
  struct Port {
    std::unique_ptr<UdpSocket> socket;
    const IID* protocol;
  };

  bool OpenOne(const Endpoint& here, const IID& protocol);
  void TellBuffers();
  void Shut();
  bool ReceiveFrom(Port* port, int most_batches, const Visit& visit);

  const ListenOptions& options_;
  Console& console_;
  std::vector<IpAddress> addresses_;
  std::vector<Port> sockets_;
  ReceiveBuffers buffers_;
  PortDrops lost_with_sockets_;
  bool has_failed_ = false;
  bool is_shut_ = false;
};

// NowMicros is the time of the day.
Timestamp NowMicros();

}  // namespace flow::host
