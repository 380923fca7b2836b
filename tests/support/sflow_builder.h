// SPDX-License-Identifier: Apache-2.0
// Builders of sFlow datagrams: lengths, counts and padding are right unless a member says
// otherwise.
//
//   SFlowPacket()
//       .Flow({.elements = {SampledHeader(Frame().Ethernet().Ipv4().Tcp())}})
//       .Counters({.elements = {{1, GenericCounters()}}})
//       .Build()
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/wire.h"

namespace flow::test {

// The bytes of a sampled packet, layer by layer. A layer does not know what follows it: its type or
// protocol field says what the caller gives.
class Frame : public Wire {
 public:
  Frame& Ethernet(std::uint16_t type = 0x0800);  // from 02:00:00:00:00:01 to 02:00:00:00:00:02
  Frame& Vlan(std::uint16_t id, std::uint16_t type = 0x0800);

  struct Ipv4Fields {
    std::uint8_t version_and_length = 0x45;  // the length in words
    std::uint8_t protocol = 6;
    Ip4 source = "10.0.0.1";
    Ip4 destination = "10.0.0.2";
    std::uint16_t fragment = 0;  // flags and offset
  };
  Frame& Ipv4() { return Ipv4(Ipv4Fields()); }
  Frame& Ipv4(const Ipv4Fields& fields);  // options up to the header's length are zero

  // From 2001:db8::1 to 2001:db8::2.
  Frame& Ipv6(std::uint8_t next_header = 6, std::uint8_t version_and_class = 0x60);
  // An extension header of 8 + 8 * more bytes; length: what it claims instead of more.
  Frame& Extension(std::uint8_t next_header, std::uint8_t more = 0,
                   std::optional<std::uint8_t> length = std::nullopt);

  Frame& Tcp(std::uint16_t source = 51000, std::uint16_t destination = 80,
             std::uint8_t flags = 0x10);
  Frame& Udp(std::uint16_t source = 40000, std::uint16_t destination = 53);

  Frame& Hex(std::string_view digits);
  Frame& Cut(std::size_t size);  // the first size bytes alone
};

// An element of a flow sample, a block of a counters sample. In versions 2 and 4 it has no length,
// and the first element of a flow sample is its packet data.
struct SFlowElement {
  std::uint32_t type;
  Wire body;
  std::optional<std::uint32_t> length = std::nullopt;
};

Wire Words(std::initializer_list<std::uint32_t> words);
Wire CountedWords(std::uint32_t count, std::uint32_t first = 1);  // first, first + 1, ...
Wire Join(std::initializer_list<Wire> parts);
Wire SFlowText(std::string_view text);  // length, text, padding
Wire SFlowAddress(Ip4 address);         // type word and address
Wire SFlowAddress6(const char* address);

struct HeaderFields {
  std::uint32_t protocol = 1;
  std::uint32_t packet_size = 1000;
  std::optional<std::uint32_t> stripped = 4;         // versions 2 and 4 have no such word
  std::optional<std::uint32_t> size = std::nullopt;  // of the header, as claimed
};
SFlowElement SampledHeader(const Wire& frame, const HeaderFields& fields = {});

// Packet data as words, of a TCP packet of 1000 bytes from port 51000 to port 80.
SFlowElement PacketData4(std::uint32_t type, std::uint32_t protocol = 6);
SFlowElement PacketData6(std::uint32_t type, std::uint32_t protocol = 6);

Wire GenericCounters();

struct SFlowFlow {
  std::vector<SFlowElement> elements;
  bool expanded = false;
  std::uint32_t sequence = 1;
  std::uint32_t source_class = 0;
  std::uint32_t source_index = 3;
  std::uint32_t rate = 100;
  std::uint32_t pool = 5000;
  std::uint32_t drops = 0;
  std::uint32_t input_format = 0;
  std::uint32_t input = 3;
  std::uint32_t output_format = 0;
  std::uint32_t output = 7;
  std::optional<std::uint32_t> count = std::nullopt;   // of elements, as claimed
  std::optional<std::uint32_t> length = std::nullopt;  // of the sample, as claimed
};

struct SFlowCounters {
  std::vector<SFlowElement> elements;
  bool expanded = false;
  std::uint32_t block_version = 1;  // versions 2 and 4, which take the first element alone
  std::optional<std::uint32_t> count = std::nullopt;
  std::optional<std::uint32_t> length = std::nullopt;
};

class SFlowPacket {
 public:
  explicit SFlowPacket(std::uint32_t version = 5) : version_(version) {}

  SFlowPacket& Agent(const Wire& address);  // 10.9.8.7 at the start
  SFlowPacket& Flow(const SFlowFlow& flow);
  SFlowPacket& Counters(const SFlowCounters& counters);
  SFlowPacket& Sample(std::uint32_t type, const Wire& rest);  // what follows the type word, as is
  SFlowPacket& WithCount(std::uint32_t count);                // of samples, as claimed
  Bytes Build() const;

 private:
  static Wire FlowV2V4(const SFlowFlow& flow);

  std::uint32_t version_;
  Wire agent_ = SFlowAddress("10.9.8.7");
  Wire samples_;
  std::uint32_t count_ = 0;
  std::optional<std::uint32_t> claimed_count_;
};

struct NamedBytes {
  std::string name;
  Bytes bytes;
};

// EveryFlowElement (version 5) holds one element of every type that the decoder knows, and one that
// it does not.
std::vector<SFlowElement> EveryFlowElement();

// EveryCounterBlock is the same for blocks of a counters sample.
std::vector<SFlowElement> EveryCounterBlock();

// SFlowDatagrams are datagrams that together hold every kind of sample, element, block and header:
// seeds to damage.
std::vector<NamedBytes> SFlowDatagrams();

}  // namespace flow::test
