// SPDX-License-Identifier: Apache-2.0
#include "tests/support/datagram_builders.h"

namespace flow::test {
namespace {

constexpr std::uint16_t kEnterpriseBit = 0x8000;

std::uint16_t Narrow(std::size_t number) { return static_cast<std::uint16_t>(number); }

void AppendFields(Wire& wire, const Fields& fields) {
  for (const Field& field : fields) {
    const bool enterprise = field.enterprise.has_value();
    wire.U16(enterprise ? static_cast<std::uint16_t>(field.type | kEnterpriseBit) : field.type);
    wire.U16(field.length);
    if (enterprise) wire.U32(*field.enterprise);
  }
}

void AppendRecord(Wire& wire, std::uint16_t format, const FixedRecord& r) {
  wire.Ip(r.src).Ip(r.dst).Ip(r.next_hop).U16(r.input).U16(r.output);
  wire.U32(r.packets).U32(r.bytes).U32(r.first).U32(r.last).U16(r.src_port).U16(r.dst_port);
  if (format == 1) {
    wire.Zeros(2).U8(r.protocol).U8(r.tos).U8(r.tcp_flags).Zeros(7);
  } else {
    wire.Zeros(1).U8(r.tcp_flags).U8(r.protocol).U8(r.tos);
    wire.U16(r.src_as).U16(r.dst_as).U8(r.src_mask).U8(r.dst_mask).Zeros(2);
  }
}

}  // namespace

FixedPacket& FixedPacket::Record(const FixedRecord& record) {
  records_.push_back(record);
  return *this;
}

FixedPacket& FixedPacket::Times(std::uint32_t uptime, std::uint32_t seconds,
                                std::uint32_t nanoseconds) {
  uptime_ = uptime;
  seconds_ = seconds;
  nanoseconds_ = nanoseconds;
  return *this;
}

FixedPacket& FixedPacket::Sampling(std::uint16_t interval) {
  sampling_ = interval;
  return *this;
}

FixedPacket& FixedPacket::WithVersion(std::uint16_t version) {
  version_ = version;
  return *this;
}

FixedPacket& FixedPacket::WithCount(std::uint16_t count) {
  count_ = count;
  return *this;
}

Bytes FixedPacket::Build() const {
  Wire wire;
  wire.U16(version_).U16(count_.value_or(Narrow(records_.size())));
  wire.U32(uptime_).U32(seconds_).U32(nanoseconds_);
  if (format_ == 5) wire.U32(1).U8(0).U8(0).U16(sampling_);  // sequence, engine type and id
  for (const FixedRecord& record : records_) AppendRecord(wire, format_, record);
  return wire.Get();
}

Set& Set::Template(std::uint16_t id, const Fields& fields, std::optional<std::uint16_t> count) {
  body_.U16(id).U16(count.value_or(Narrow(fields.size())));
  AppendFields(body_, fields);
  ++records_;
  return *this;
}

Set& Set::Record(const Wire& record) {
  ++records_;
  return Raw(record);
}

Set& Set::Raw(const Wire& bytes) {
  body_.Raw(bytes.Get());
  return *this;
}

Set& Set::PadTo4() { return Pad((4 - body_.size() % 4) % 4); }

Set& Set::WithLength(std::uint16_t length) {
  length_ = length;
  return *this;
}

Bytes Set::Build() const {
  return Wire().U16(id_).U16(length_.value_or(Narrow(4 + body_.size()))).Raw(body_.Get()).Get();
}

Set V9Options(std::uint16_t template_id, const Fields& scopes, const Fields& options,
              std::optional<std::uint16_t> scope_length,
              std::optional<std::uint16_t> option_length) {
  Wire record;
  record.U16(template_id);
  record.U16(scope_length.value_or(Narrow(4 * scopes.size())));
  record.U16(option_length.value_or(Narrow(4 * options.size())));
  AppendFields(record, scopes);
  AppendFields(record, options);
  return Set(1).Record(record);
}

Set IpfixOptions(std::uint16_t template_id, const Fields& scopes, const Fields& options,
                 std::optional<std::uint16_t> field_count,
                 std::optional<std::uint16_t> scope_count) {
  Wire record;
  record.U16(template_id);
  record.U16(field_count.value_or(Narrow(scopes.size() + options.size())));
  record.U16(scope_count.value_or(Narrow(scopes.size())));
  AppendFields(record, scopes);
  AppendFields(record, options);
  return Set(3).Record(record);
}

V9Packet& V9Packet::Add(const Set& set) {
  sets_.Raw(set.Build());
  records_ += set.Records();
  return *this;
}

V9Packet& V9Packet::Times(std::uint32_t uptime, std::uint32_t seconds) {
  uptime_ = uptime;
  seconds_ = seconds;
  return *this;
}

V9Packet& V9Packet::WithCount(std::uint16_t count) {
  count_ = count;
  return *this;
}

Bytes V9Packet::Build() const {
  Wire wire;
  wire.U16(9).U16(count_.value_or(Narrow(records_))).U32(uptime_).U32(seconds_);
  wire.U32(1).U32(0);  // sequence, source id
  return wire.Raw(sets_.Get()).Get();
}

IpfixMessage& IpfixMessage::Add(const Set& set) {
  sets_.Raw(set.Build());
  return *this;
}

IpfixMessage& IpfixMessage::ExportTime(std::uint32_t seconds) {
  seconds_ = seconds;
  return *this;
}

IpfixMessage& IpfixMessage::WithLength(std::uint16_t length) {
  length_ = length;
  return *this;
}

Bytes IpfixMessage::Build() const {
  Wire wire;
  wire.U16(10).U16(length_.value_or(Narrow(16 + sets_.size()))).U32(seconds_);
  wire.U32(1).U32(0);  // sequence, observation domain
  return wire.Raw(sets_.Get()).Get();
}

Bytes Shimmed(Ip4 exporter, const Bytes& datagram) {
  return Wire().Text("OMBR").Ip(exporter).Text("LNSM").Raw(datagram).Get();
}

}  // namespace flow::test
