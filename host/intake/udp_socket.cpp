// SPDX-License-Identifier: Apache-2.0
#include "host/intake/udp_socket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/base/error.h"
#include "host/capture/made_headers.h"

namespace flow::host {
namespace {

// A name for the socket calls.
struct SocketName {
  explicit SocketName(const Endpoint& endpoint) {
    if (endpoint.address.family() == Family::kIpv4) {
      auto& name = reinterpret_cast<sockaddr_in&>(storage);
      name.sin_family = AF_INET;
      name.sin_port = htons(endpoint.port);
      name.sin_addr.s_addr = htonl(endpoint.address.AsIpv4());
      size = sizeof(name);
    } else {
      auto& name = reinterpret_cast<sockaddr_in6&>(storage);
      name.sin6_family = AF_INET6;
      name.sin6_port = htons(endpoint.port);
      std::ranges::copy(endpoint.address.bytes(), name.sin6_addr.s6_addr);
      size = sizeof(name);
    }
  }

  sockaddr_storage storage{};
  socklen_t size = 0;
};

Endpoint EndpointOf(const sockaddr_storage& storage) {
  if (storage.ss_family == AF_INET6) {
    const auto& name = reinterpret_cast<const sockaddr_in6&>(storage);
    return {IpAddress::Ipv6(std::span<const std::uint8_t, 16>(name.sin6_addr.s6_addr)),
            ntohs(name.sin6_port)};
  }
  const auto& name = reinterpret_cast<const sockaddr_in&>(storage);
  return {IpAddress::Ipv4(ntohl(name.sin_addr.s_addr)), ntohs(name.sin_port)};
}

// A socket of IPv6 takes that alone: exporters of IPv4 have sockets of their own.
bool Bind(int descriptor, const Endpoint& here) {
  const int only = 1;
  const SocketName name(here);
  return descriptor >= 0 &&
         (here.address.family() == Family::kIpv4 ||
          setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof(only)) == 0) &&
         bind(descriptor, reinterpret_cast<const sockaddr*>(&name.storage), name.size) == 0;
}

int NewSocket(Family family) {
  return socket(family == Family::kIpv4 ? AF_INET : AF_INET6,
                SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// The kernel doubles what it is asked for, for its own needs, and tells the doubled value.
std::size_t AskForBuffer(int descriptor, std::size_t bytes) {
  const int wanted = static_cast<int>(bytes);
  if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof(wanted)) != 0) {
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof(wanted));
  }
  int granted = 0;
  socklen_t size = sizeof(granted);
  getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &granted, &size);
  return static_cast<std::size_t>(granted) / 2;
}

}  // namespace

ReceiveBuffers::ReceiveBuffers()
    : slots_(new std::uint8_t[kDatagrams * kSlot]),
      places_(kDatagrams),
      messages_(kDatagrams),
      senders_(kDatagrams) {
  for (std::size_t i = 0; i < kDatagrams; ++i) {
    places_[i] = {slots_.get() + i * kSlot + kMadeHeaders, kSlot - kMadeHeaders};
    messages_[i] = {};
    messages_[i].msg_hdr.msg_iov = &places_[i];
    messages_[i].msg_hdr.msg_iovlen = 1;
    messages_[i].msg_hdr.msg_name = &senders_[i];
  }
}

bool HasIpv6() {
  const int descriptor = NewSocket(Family::kIpv6);
  const bool has = Bind(descriptor, {IpAddress::Ipv6(std::array<std::uint8_t, 16>{}), 0});
  if (descriptor >= 0) close(descriptor);
  return has;
}

UdpSocket::UdpSocket(const Endpoint& here, std::size_t receive_buffer)
    : here_(here), descriptor_(NewSocket(here.address.family())) {
  if (!Bind(descriptor_, here)) {
    const int reason = errno;
    if (descriptor_ >= 0) close(descriptor_);
    throw HostError(
        fmt::format("UDP port {} cannot be had: {}", here.Text(), std::strerror(reason)));
  }
  receive_buffer_ = AskForBuffer(descriptor_, receive_buffer);
}

UdpSocket::~UdpSocket() { close(descriptor_); }

std::size_t UdpSocket::Receive(ReceiveBuffers* buffers, Timestamp now,
                               const std::function<void(const UdpPacket&)>& visit) {
  for (mmsghdr& message : buffers->messages_) {
    message.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
  }
  const int count = recvmmsg(descriptor_, buffers->messages_.data(), ReceiveBuffers::kDatagrams,
                             MSG_DONTWAIT, nullptr);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return 0;
    throw HostError(fmt::format("UDP port {} has failed: {}", here_.port, std::strerror(errno)));
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    std::uint8_t* const start = buffers->slots_.get() + i * ReceiveBuffers::kSlot;
    UdpPacket packet;
    packet.time = now;
    packet.payload_length = buffers->messages_[i].msg_len;
    packet.ip = {start, kMadeHeaders + packet.payload_length};
    packet.udp_offset = kMadeUdpOffset;
    packet.source = EndpointOf(buffers->senders_[i]);
    packet.destination = here_;
    if (here_.address.family() == Family::kIpv4) PutMadeHeaders(packet, start);
    visit(packet);
  }
  return static_cast<std::size_t>(count);
}

void UdpSocket::Shut() {
  sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_fprog program{1, &nothing};
  setsockopt(descriptor_, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
}

std::uint64_t UdpSocket::Discard() {
  std::uint64_t datagrams = 0;
  while (recv(descriptor_, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC) >= 0) ++datagrams;
  return datagrams;
}

std::uint64_t UdpSocket::TakeDrops() {
  // linux/sock_diag.h, whose names C++ programs cannot count on in older headers.
  constexpr int kMemInfo = 55;
  constexpr std::size_t kDropsAt = 8;
  std::uint32_t info[kDropsAt + 1] = {};
  socklen_t size = sizeof(info);
  if (getsockopt(descriptor_, SOL_SOCKET, kMemInfo, info, &size) != 0) return 0;
  const std::uint32_t drops = info[kDropsAt] - drops_told_;  // counts modulo 2^32
  drops_told_ = info[kDropsAt];
  return drops;
}

}  // namespace flow::host
