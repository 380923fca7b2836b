// SPDX-License-Identifier: Apache-2.0
// A UDP port that export datagrams arrive on, read in batches.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/capture/udp_packet.h"

namespace flow::host {

// Space for one batch; all sockets of a thread can share it.
class ReceiveBuffers {
 public:
  static constexpr std::size_t kDatagrams = 64;

  ReceiveBuffers();

 private:
  friend class UdpSocket;

  // An IPv4 header and a UDP header are made in front of each payload, as if it had been captured.
  // Behind them there is room for any datagram, over IPv6, too.
  static constexpr std::size_t kSlot = (std::size_t{1} << 16) + 64;

  std::unique_ptr<std::uint8_t[]> slots_;
  std::vector<iovec> places_;
  std::vector<mmsghdr> messages_;
  std::vector<sockaddr_storage> senders_;
};

// HasIpv6 tells whether this machine speaks IPv6.
bool HasIpv6();

class UdpSocket {
 public:
  // Binds; receive_buffer is what is asked of the kernel, which may grant less. HostError when the
  // port cannot be had.
  UdpSocket(const Endpoint& here, std::size_t receive_buffer);
  ~UdpSocket();
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  // Receive takes at most a batch of what waits, without waiting, and calls visit for each; the
  // packet is valid during the call; over IPv6 it has no headers, but room for kMadeHeaders. The
  // number of datagrams; HostError when the socket is broken.
  std::size_t Receive(ReceiveBuffers* buffers, Timestamp now,
                      const std::function<void(const UdpPacket&)>& visit);

  // Shut has the kernel take nothing more, which counts as dropped; what waits can be received.
  void Shut();
  // Discard throws what waits away; how many datagrams.
  std::uint64_t Discard();

  // Datagrams that the kernel has dropped since the last call because the buffer was full, or the
  // socket shut.
  std::uint64_t TakeDrops();

  [[nodiscard]] std::uint16_t port() const { return here_.port; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  // Bytes granted.
  [[nodiscard]] std::size_t receive_buffer() const { return receive_buffer_; }

 private:
  Endpoint here_;
  int descriptor_;
  std::size_t receive_buffer_ = 0;
  std::uint32_t drops_told_ = 0;
};

}  // namespace flow::host
