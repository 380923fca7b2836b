// SPDX-License-Identifier: Apache-2.0
// Builders of export datagrams: lengths and counts are right unless a With... call says otherwise.
//
//   V5Packet().Record({.src = "10.0.0.1", .packets = 3}).WithCount(2).Build()
//   V9Packet().Add(V9Templates().Template(256, {{8, 4}, {12, 4}, {1, 4}}))
//             .Add(DataSet(256).Record(Wire().Ip("10.0.0.1").Ip("10.0.0.2").U32(1000)))
//             .Build()
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tests/support/wire.h"

namespace flow::test {

// One record of a fixed format, version 1 or 5; version 1 has no AS numbers and prefix lengths.
struct FixedRecord {
  Ip4 src = "10.0.0.1";
  Ip4 dst = "10.0.0.2";
  Ip4 next_hop = "10.255.0.1";
  std::uint16_t input = 3;
  std::uint16_t output = 7;
  std::uint32_t packets = 10;
  std::uint32_t bytes = 1000;
  std::uint32_t first = 5000;  // uptime in milliseconds
  std::uint32_t last = 9000;
  std::uint16_t src_port = 51000;
  std::uint16_t dst_port = 80;
  std::uint8_t tcp_flags = 0;
  std::uint8_t protocol = 6;
  std::uint8_t tos = 0;
  std::uint16_t src_as = 0;
  std::uint16_t dst_as = 0;
  std::uint8_t src_mask = 0;
  std::uint8_t dst_mask = 0;
};

// NetFlow version 1 (16-byte header) and 5 (24-byte header), records of 48 bytes.
class FixedPacket {
 public:
  FixedPacket& Record(const FixedRecord& record = {});
  FixedPacket& Times(std::uint32_t uptime, std::uint32_t seconds, std::uint32_t nanoseconds = 0);
  FixedPacket& Sampling(std::uint16_t interval);  // version 5: mode and interval as one number
  FixedPacket& WithVersion(std::uint16_t version);
  FixedPacket& WithCount(std::uint16_t count);
  Bytes Build() const;

 protected:
  explicit FixedPacket(std::uint16_t version) : format_(version), version_(version) {}

 private:
  std::uint16_t format_;
  std::uint16_t version_;
  std::uint32_t uptime_ = 10000;
  std::uint32_t seconds_ = 1700000000;
  std::uint32_t nanoseconds_ = 0;
  std::uint16_t sampling_ = 0;
  std::optional<std::uint16_t> count_;
  std::vector<FixedRecord> records_;
};

struct V1Packet : FixedPacket {
  V1Packet() : FixedPacket(1) {}
};
struct V5Packet : FixedPacket {
  V5Packet() : FixedPacket(5) {}
};

// One field of a template. With an enterprise number, bit 15 of the type is set on the wire.
struct Field {
  std::uint16_t type;
  std::uint16_t length;
  std::optional<std::uint32_t> enterprise = std::nullopt;
};
inline constexpr std::uint16_t kVariableLength = 65535;
using Fields = std::vector<Field>;

// A flowset of NetFlow version 9, a set of IPFIX.
class Set {
 public:
  explicit Set(std::uint16_t id) : id_(id) {}

  // Template appends a template record; count: the number of fields that it claims.
  Set& Template(std::uint16_t id, const Fields& fields,
                std::optional<std::uint16_t> count = std::nullopt);
  Set& Record(const Wire& record);
  Set& Raw(const Wire& bytes);  // no record, as padding or rubbish
  Set& Pad(std::size_t count) { return Raw(Wire().Zeros(count)); }
  Set& PadTo4();
  Set& WithLength(std::uint16_t length);

  std::size_t Records() const { return records_; }
  Bytes Build() const;

 private:
  std::uint16_t id_;
  Wire body_;
  std::size_t records_ = 0;
  std::optional<std::uint16_t> length_;
};

inline Set V9Templates() { return Set(0); }
inline Set IpfixTemplates() { return Set(2); }
inline Set DataSet(std::uint16_t template_id) { return Set(template_id); }

// An options template with its set. Lies about the lengths (version 9) and the numbers of fields
// (IPFIX) are what a caller gives beside the fields.
Set V9Options(std::uint16_t template_id, const Fields& scopes, const Fields& options,
              std::optional<std::uint16_t> scope_length = std::nullopt,
              std::optional<std::uint16_t> option_length = std::nullopt);
Set IpfixOptions(std::uint16_t template_id, const Fields& scopes, const Fields& options,
                 std::optional<std::uint16_t> field_count = std::nullopt,
                 std::optional<std::uint16_t> scope_count = std::nullopt);

class V9Packet {
 public:
  V9Packet& Add(const Set& set);
  V9Packet& Times(std::uint32_t uptime, std::uint32_t seconds);
  V9Packet& WithCount(std::uint16_t count);  // else the number of records in all sets
  Bytes Build() const;

 private:
  Wire sets_;
  std::size_t records_ = 0;
  std::uint32_t uptime_ = 10000;
  std::uint32_t seconds_ = 1700000000;
  std::optional<std::uint16_t> count_;
};

class IpfixMessage {
 public:
  IpfixMessage& Add(const Set& set);
  IpfixMessage& ExportTime(std::uint32_t seconds);
  IpfixMessage& WithLength(std::uint16_t length);
  Bytes Build() const;

 private:
  Wire sets_;
  std::uint32_t seconds_ = 1700000000;
  std::optional<std::uint16_t> length_;
};

// Shimmed puts a relay's 12 bytes, which name the first exporter, in front of a datagram.
Bytes Shimmed(Ip4 exporter, const Bytes& datagram);

}  // namespace flow::test
