// SPDX-License-Identifier: Apache-2.0
#include "host/border/packet_context.h"

#include <algorithm>

#include "host/base/big_endian.h"
#include "host/border/call_trace.h"
#include "host/export/export_format.h"

namespace flow::host {
namespace {

constexpr std::size_t kSourceAt = 12;  // in an IPv4 header

}  // namespace

ProtData::ProtData(std::string_view name, IOmbrelParseContext* context, CallTrace* trace)
    : name_(name), context_(context), trace_(trace) {}

Status ProtData::GetBuffer(const std::uint8_t** data, std::uint32_t* length) {
  *data = bytes_.data();
  *length = static_cast<std::uint32_t>(bytes_.size());
  if (trace_ != nullptr) trace_->Call("GetBuffer {} {}", name_, *length);
  return kStatusOk;
}

Status ProtData::GetParseContext(IOmbrelParseContext** context) {
  if (trace_ != nullptr) trace_->Call("GetParseContext {}", name_);
  *context = context_;
  return kStatusOk;
}

PacketContext::PacketContext(CallTrace* trace)
    : trace_(trace),
      ip_("IPv4", this, trace),
      udp_("UDP", this, trace),
      payload_("payload", this, trace) {}

void PacketContext::Set(const UdpPacket& packet) {
  bytes_.assign(packet.ip.begin(), packet.ip.end());
  // Where a shim names the sender itself, what a meter writes shows whether it took the shim off.
  if (ShimExporter(packet.Payload()) == Source()) {
    std::fill_n(bytes_.begin() + kSourceAt, 4, std::uint8_t{0});
  }
  const std::span<const std::uint8_t> ip(bytes_);
  ip_.Set(ip);
  udp_.Set(ip.subspan(packet.udp_offset, 8 + packet.payload_length));
  payload_.Set(ip.subspan(packet.udp_offset + 8, packet.payload_length));
}

IpAddress PacketContext::Source() const { return IpAddress::Ipv4(Be32(bytes_.data() + kSourceAt)); }

Status PacketContext::GetProtData(const IID& protocol, IOmbrelProtData** data) {
  if (trace_ != nullptr) trace_->Call("GetProtData {}", trace_->Name(protocol));
  *data = nullptr;
  if (protocol == UPID_IP) *data = &ip_;
  if (protocol == UPID_UDP) *data = &udp_;
  return kStatusOk;
}

Status PacketContext::SetParsedLength(std::uint32_t length) {
  if (trace_ != nullptr) trace_->Call("SetParsedLength {}", length);
  return kStatusOk;
}

}  // namespace flow::host
