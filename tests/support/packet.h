// SPDX-License-Identifier: Apache-2.0
// Packets as the host hands them to the components: one contiguous heap block of exactly the size
// of IPv4 header, UDP header and payload, so that a sanitizer sees a read one byte past either end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "flowhandlers/host_interfaces.h"
#include "tests/support/wire.h"

namespace flow::test {

class HostTrace;

// Where a datagram comes from.
struct Exporter {
  Ip4 address = "192.0.2.1";
  std::uint16_t port = 50000;
};

// UdpHeaders makes the IPv4 header (20 bytes) and the UDP header (8 bytes) of a datagram to
// 192.0.2.250:2055 with that much payload.
Bytes UdpHeaders(const Exporter& exporter, std::size_t payload_size);

// A packet with its layers and its parse context.
class Packet {
 public:
  // headers: the IPv4 header and what stands between it and the payload. Without headers the packet
  // has no IPv4 layer.
  Packet(HostTrace* trace, std::span<const std::uint8_t> headers,
         std::span<const std::uint8_t> payload);
  ~Packet();
  Packet(const Packet&) = delete;
  Packet& operator=(const Packet&) = delete;

  // The layer that Count and GenerateParse receive.
  IOmbrelProtData* Payload() const;
  IOmbrelParseContext* Context() const;

  // The IPv4 header as it is now; null without an IPv4 layer.
  std::uint8_t* Headers() const;

  // CheckUntouched records a fault when anything but the IPv4 source address has been changed.
  void CheckUntouched() const;

 private:
  struct Layers;
  std::unique_ptr<Layers> layers_;
};

}  // namespace flow::test
