#include "host/intake/udp_socket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/base/error.h"

namespace flow::host {
namespace {

constexpr std::size_t kIpHeader = 20;

void PutBe16(std::size_t value, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>(value >> 8);
  out[1] = static_cast<std::uint8_t>(value);
}

// The headers as on the wire, without checksums.
void PutHeaders(const UdpPacket& packet, std::uint8_t* out) {
  std::memset(out, 0, kIpHeader + 8);
  out[0] = 0x45;
  PutBe16(packet.ip.size(), out + 2);
  out[8] = 64;
  out[9] = IPPROTO_UDP;
  std::ranges::copy(packet.source.address.bytes(), out + 12);
  std::ranges::copy(packet.destination.address.bytes(), out + 16);
  PutBe16(packet.source.port, out + 20);
  PutBe16(packet.destination.port, out + 22);
  PutBe16(packet.payload_length + 8, out + 24);
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
    places_[i] = {slots_.get() + i * kSlot + kHeaders, kSlot - kHeaders};
    messages_[i] = {};
    messages_[i].msg_hdr.msg_iov = &places_[i];
    messages_[i].msg_hdr.msg_iovlen = 1;
    messages_[i].msg_hdr.msg_name = &senders_[i];
  }
}

UdpSocket::UdpSocket(const Endpoint& here, std::size_t receive_buffer)
    : here_(here), descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(here.port);
  name.sin_addr.s_addr = htonl(here.address.AsIpv4());
  if (descriptor_ < 0 ||
      bind(descriptor_, reinterpret_cast<const sockaddr*>(&name), sizeof(name)) != 0) {
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
    const auto& sender = reinterpret_cast<const sockaddr_in&>(buffers->senders_[i]);
    std::uint8_t* const start = buffers->slots_.get() + i * ReceiveBuffers::kSlot;
    UdpPacket packet;
    packet.time = now;
    packet.payload_length = buffers->messages_[i].msg_len;
    packet.ip = {start, ReceiveBuffers::kHeaders + packet.payload_length};
    packet.udp_offset = kIpHeader;
    packet.source = {IpAddress::Ipv4(ntohl(sender.sin_addr.s_addr)), ntohs(sender.sin_port)};
    packet.destination = here_;
    PutHeaders(packet, start);
    visit(packet);
  }
  return static_cast<std::size_t>(count);
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
