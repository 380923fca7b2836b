// SPDX-License-Identifier: Apache-2.0
// The packet being handled, as handlers and meters see it: a parse context and its layers.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "host/border/host_object.h"
#include "host/capture/udp_packet.h"

namespace flow::host {

class CallTrace;

// One layer of the packet.
class ProtData final : public HostObject<IOmbrelProtData, IID_IOmbrelProtData> {
 public:
  ProtData(std::string_view name, IOmbrelParseContext* context, CallTrace* trace);

  void Set(std::span<const std::uint8_t> bytes) { bytes_ = bytes; }

  Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) override;
  Status GetParseContext(IOmbrelParseContext** context) override;

 private:
  std::string_view name_;
  IOmbrelParseContext* context_;
  CallTrace* trace_;
  std::span<const std::uint8_t> bytes_;
};

// PacketContext keeps its own copy of the packet: a meter may write an exporter's address into the
// IPv4 header (behind a forwarding shim).
class PacketContext final : public HostObject<IOmbrelParseContext, IID_IOmbrelParseContext> {
 public:
  // trace may be null.
  explicit PacketContext(CallTrace* trace);

  void Set(const UdpPacket& packet);

  // The layer that handlers and meters are given: the UDP payload.
  IOmbrelProtData* Payload() { return &payload_; }

  // The source address that the IPv4 header holds now; 0.0.0.0 where a shim that is still in front
  // names the sender itself.
  [[nodiscard]] IpAddress Source() const;

  Status GetProtData(const IID& protocol, IOmbrelProtData** data) override;
  Status SetParsedLength(std::uint32_t length) override;

 private:
  CallTrace* trace_;
  std::vector<std::uint8_t> bytes_;
  ProtData ip_;
  ProtData udp_;
  ProtData payload_;
};

}  // namespace flow::host
