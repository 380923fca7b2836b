// SPDX-License-Identifier: Apache-2.0
// One export datagram, as handlers and meters see it: a packet of three layers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "flowhandlers/kit/host_object.h"

namespace flow::kit {

// One layer of the packet.
class Layer final : public HostObject<IOmbrelProtData, IID_IOmbrelProtData> {
 public:
  explicit Layer(IOmbrelParseContext* packet) : packet_(packet) {}

  void Set(const std::uint8_t* data, std::size_t length) {
    data_ = data;
    length_ = static_cast<std::uint32_t>(length);
  }

  Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) override {
    *data = data_;
    *length = length_;
    return kStatusOk;
  }
  Status GetParseContext(IOmbrelParseContext** context) override {
    *context = packet_;
    return kStatusOk;
  }

 private:
  IOmbrelParseContext* packet_;
  const std::uint8_t* data_ = nullptr;
  std::uint32_t length_ = 0;
};

// An IPv4 address, host byte order, and a UDP port.
struct Endpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
};

// A packet that is made around a payload. It is used again for one after the other, and is a copy:
// a meter may write another exporter's address into the header.
class Datagram final : public HostObject<IOmbrelParseContext, IID_IOmbrelParseContext> {
 public:
  Datagram() : ip_(this), udp_(this), payload_(this) {}
  Datagram(const Datagram&) = delete;
  Datagram& operator=(const Datagram&) = delete;

  // Set takes what came from an exporter over UDP.
  void Set(const Endpoint& source, const Endpoint& destination, const std::uint8_t* payload,
           std::size_t length) {
    bytes_.assign(kHeaders + length, 0);
    std::uint8_t* const ip = bytes_.data();
    ip[0] = 0x45;  // version 4, header of 20 bytes
    Put16(kHeaders + length, ip + 2);
    ip[8] = 64;
    ip[9] = 17;  // UDP
    Put32(source.address, ip + 12);
    Put32(destination.address, ip + 16);
    Put16(source.port, ip + kIpHeader);
    Put16(destination.port, ip + kIpHeader + 2);
    Put16(8 + length, ip + kIpHeader + 4);
    if (length > 0) std::memcpy(ip + kHeaders, payload, length);
    ip_.Set(ip, bytes_.size());
    udp_.Set(ip + kIpHeader, bytes_.size() - kIpHeader);
    payload_.Set(ip + kHeaders, length);
  }

  // The layer that handlers and meters are given.
  IOmbrelProtData* Payload() { return &payload_; }

  Status GetProtData(const IID& protocol, IOmbrelProtData** data) override {
    *data = nullptr;
    if (protocol == UPID_IP) *data = &ip_;
    if (protocol == UPID_UDP) *data = &udp_;
    return kStatusOk;
  }
  Status SetParsedLength(std::uint32_t /*length*/) override { return kStatusOk; }

 private:
  static constexpr std::size_t kIpHeader = 20;
  static constexpr std::size_t kHeaders = kIpHeader + 8;

  static void Put16(std::size_t value, std::uint8_t* out) {
    out[0] = static_cast<std::uint8_t>(value >> 8);
    out[1] = static_cast<std::uint8_t>(value);
  }
  static void Put32(std::uint32_t value, std::uint8_t* out) {
    Put16(value >> 16, out);
    Put16(value & 0xFFFF, out + 2);
  }

  std::vector<std::uint8_t> bytes_;
  Layer ip_;
  Layer udp_;
  Layer payload_;
};

}  // namespace flow::kit
