// SPDX-License-Identifier: Apache-2.0
#include "tests/support/sflow_builder.h"

#include <span>

namespace flow::test {
namespace {

std::uint32_t Size32(const Wire& wire) { return static_cast<std::uint32_t>(wire.size()); }

std::size_t Padding(std::size_t size) { return (4 - size % 4) % 4; }

// The announced length, then the body.
Wire WithLength(const Wire& body, std::optional<std::uint32_t> claimed) {
  return Join({Words({claimed.value_or(Size32(body))}), body});
}

Wire Elements(const std::vector<SFlowElement>& elements, std::optional<std::uint32_t> count) {
  Wire wire = Words({count.value_or(static_cast<std::uint32_t>(elements.size()))});
  for (const SFlowElement& element : elements) {
    wire.U32(element.type).Raw(WithLength(element.body, element.length).Get());
  }
  return wire;
}

Wire Source(std::uint32_t source_class, std::uint32_t index, bool expanded) {
  return expanded ? Words({source_class, index}) : Words({source_class << 24 | index});
}

}  // namespace

Frame& Frame::Ethernet(std::uint16_t type) {
  Mac("02:00:00:00:00:02").Mac("02:00:00:00:00:01").U16(type);
  return *this;
}

Frame& Frame::Vlan(std::uint16_t id, std::uint16_t type) {
  U16(id).U16(type);
  return *this;
}

Frame& Frame::Ipv4(const Ipv4Fields& fields) {
  const std::size_t words = fields.version_and_length & 15U;
  U8(fields.version_and_length).U8(0x20).U16(40).U16(1).U16(fields.fragment);
  U8(64).U8(fields.protocol).U16(0).Ip(fields.source).Ip(fields.destination);
  if (words > 5) Zeros(4 * (words - 5));
  return *this;
}

Frame& Frame::Ipv6(std::uint8_t next_header, std::uint8_t version_and_class) {
  U8(version_and_class).Zeros(3).U16(20).U8(next_header).U8(63);
  Ip6("2001:db8::1").Ip6("2001:db8::2");
  return *this;
}

Frame& Frame::Extension(std::uint8_t next_header, std::uint8_t more,
                        std::optional<std::uint8_t> length) {
  U8(next_header).U8(length.value_or(more)).Zeros(6 + std::size_t{8} * more);
  return *this;
}

Frame& Frame::Tcp(std::uint16_t source, std::uint16_t destination, std::uint8_t flags) {
  U16(source).U16(destination).U32(1).U32(0).U8(0x50).U8(flags).U16(512).U32(0);
  return *this;
}

Frame& Frame::Udp(std::uint16_t source, std::uint16_t destination) {
  U16(source).U16(destination).U16(120).U16(0);
  return *this;
}

Frame& Frame::Hex(std::string_view digits) {
  HexText(digits);
  return *this;
}

Frame& Frame::Cut(std::size_t size) {
  Frame cut;
  cut.Raw(std::span(Get()).first(size));
  return *this = cut;
}

Wire Words(std::initializer_list<std::uint32_t> words) {
  Wire wire;
  for (const std::uint32_t word : words) wire.U32(word);
  return wire;
}

Wire CountedWords(std::uint32_t count, std::uint32_t first) {
  Wire wire;
  for (std::uint32_t i = 0; i < count; ++i) wire.U32(first + i);
  return wire;
}

Wire Join(std::initializer_list<Wire> parts) {
  Wire wire;
  for (const Wire& part : parts) wire.Raw(part.Get());
  return wire;
}

Wire SFlowText(std::string_view text) {
  return Words({static_cast<std::uint32_t>(text.size())}).Text(text).Zeros(Padding(text.size()));
}

Wire SFlowAddress(Ip4 address) { return Words({1}).Ip(address); }

Wire SFlowAddress6(const char* address) { return Words({2}).Ip6(address); }

SFlowElement SampledHeader(const Wire& frame, const HeaderFields& fields) {
  Wire body = Words({fields.protocol, fields.packet_size});
  if (fields.stripped) body.U32(*fields.stripped);
  body.U32(fields.size.value_or(Size32(frame))).Raw(frame.Get()).Zeros(Padding(frame.size()));
  return {1, body};
}

SFlowElement PacketData4(std::uint32_t type, std::uint32_t protocol) {
  return {type, Join({Words({1000, protocol}), Wire().Ip("10.0.0.1").Ip("10.0.0.2"),
                      Words({51000, 80, 0x12, 0x20})})};
}

SFlowElement PacketData6(std::uint32_t type, std::uint32_t protocol) {
  return {type, Join({Words({1000, protocol}), Wire().Ip6("2001:db8::1").Ip6("2001:db8::2"),
                      Words({51000, 80, 0x12, 0x20})})};
}

Wire GenericCounters() {
  return Join({Words({3, 6}), Wire().U64(1000000000), Words({1, 3}), Wire().U64(5000000001),
               CountedWords(6, 10), Wire().U64(6000000002), CountedWords(6, 20)});
}

SFlowPacket& SFlowPacket::Agent(const Wire& address) {
  agent_ = address;
  return *this;
}

SFlowPacket& SFlowPacket::Sample(std::uint32_t type, const Wire& rest) {
  samples_.U32(type).Raw(rest.Get());
  ++count_;
  return *this;
}

SFlowPacket& SFlowPacket::WithCount(std::uint32_t count) {
  claimed_count_ = count;
  return *this;
}

SFlowPacket& SFlowPacket::Flow(const SFlowFlow& flow) {
  if (version_ != 5) return Sample(1, FlowV2V4(flow));
  const Wire ports =
      flow.expanded
          ? Words({flow.input_format, flow.input, flow.output_format, flow.output})
          : Words({flow.input_format << 30 | flow.input, flow.output_format << 30 | flow.output});
  const Wire body =
      Join({Words({flow.sequence}), Source(flow.source_class, flow.source_index, flow.expanded),
            Words({flow.rate, flow.pool, flow.drops}), ports, Elements(flow.elements, flow.count)});
  return Sample(flow.expanded ? 3 : 1, WithLength(body, flow.length));
}

Wire SFlowPacket::FlowV2V4(const SFlowFlow& flow) {
  Wire wire = Join({Words({flow.sequence}), Source(flow.source_class, flow.source_index, false),
                    Words({flow.rate, flow.pool, flow.drops, flow.input, flow.output})});
  const auto extended = static_cast<std::uint32_t>(flow.elements.size() - 1);
  bool is_packet_data = true;
  for (const SFlowElement& element : flow.elements) {
    wire.U32(element.type).Raw(element.body.Get());
    if (is_packet_data) wire.U32(flow.count.value_or(extended));
    is_packet_data = false;
  }
  return wire;
}

SFlowPacket& SFlowPacket::Counters(const SFlowCounters& counters) {
  const Wire head = Join({Words({1}), Source(0, 3, counters.expanded)});
  if (version_ != 5) {
    return Sample(2, Join({head, Words({30, counters.block_version}),
                           counters.elements.empty() ? Wire() : counters.elements[0].body}));
  }
  const Wire body = Join({head, Elements(counters.elements, counters.count)});
  return Sample(counters.expanded ? 4 : 2, WithLength(body, counters.length));
}

Bytes SFlowPacket::Build() const {
  const std::uint32_t count = claimed_count_.value_or(count_);
  return Join({Words({version_}), agent_, version_ == 5 ? Words({0}) : Wire(),
               Words({1, 1000, count}), samples_})
      .Get();
}

std::vector<SFlowElement> EveryFlowElement() {
  const Wire text = SFlowText("abcde");
  const Wire mac = Wire().Mac("02:00:00:00:00:09").Zeros(2);
  return {
      SampledHeader(Frame().Ethernet(0x8100).Vlan(100).Ipv4().Tcp()),
      {2, Join({Words({600}), mac, mac, Words({0x0800})})},
      PacketData4(3),
      PacketData6(4),
      {1001, Words({100, 1, 200, 2})},
      {1002, Join({SFlowAddress("10.1.1.1"), Words({24, 16})})},
      {1003, Join({SFlowAddress6("2001:db8::9"), Words({1, 2, 3, 1, 2, 2, 65001, 65002}),
                   Words({2, 100, 200, 50})})},
      {1004, Join({Words({106}), text, Words({3}), text})},
      {1005, Join({Words({1}), text, text})},
      {1006, Join({SFlowAddress("10.1.1.2"), Words({1, 16, 2, 17, 18})})},
      {1007, Join({SFlowAddress("10.1.1.3"), SFlowAddress("10.1.1.4")})},
      {1008, Join({text, Words({1, 2})})},
      {1009, Join({text, Words({1, 2})})},
      {1010, Join({text, Words({1})})},
      {1011, Words({1})},
      {1012, Words({2, 10, 20})},
      {1013,
       Join({Words({4}), SampledHeader(Frame().Ethernet().Ipv4({.protocol = 17}).Udp()).body})},
      {1014, Join({text, mac, CountedWords(7)})},
      {1015, Join({text, mac, CountedWords(8)})},
      {2100, Join({Words({6}), Wire().Ip("10.2.0.1").Ip("10.2.0.2"), Words({1, 2})})},
      {2101, Join({Words({6}), Wire().Ip6("2001:db8::5").Ip6("2001:db8::6"), Words({1, 2})})},
      {2200, Join({Words({1, 2}), text, CountedWords(4)})},
      {2201, Join({Words({1, 2}), text, text, text, text, text, text, CountedWords(4)})},
      {4097, Wire().Zeros(8)},
  };
}

std::vector<SFlowElement> EveryCounterBlock() {
  std::vector<SFlowElement> blocks = {
      {1, GenericCounters()}, {2, CountedWords(13)}, {3, CountedWords(18)},  {4, CountedWords(20)},
      {5, CountedWords(7)},   {6, CountedWords(20)}, {1001, CountedWords(7)}};
  for (const std::uint32_t type : {1002U, 2000U, 2001U, 2002U, 2003U, 2004U, 2005U, 2006U, 2100U,
                                   2101U, 2102U, 2103U, 2104U, 2200U, 2201U, 4099U}) {
    blocks.push_back({type, CountedWords(type % 7)});
  }
  return blocks;
}

std::vector<NamedBytes> SFlowDatagrams() {
  const SFlowElement tcp = SampledHeader(Frame().Ethernet().Ipv4().Tcp());
  const SFlowElement tcp_v4 =
      SampledHeader(Frame().Ethernet(0x8100).Vlan(7).Ipv4().Tcp(), {.stripped = std::nullopt});
  const SFlowElement ip6 = SampledHeader(
      Frame().Ethernet(0x86DD).Ipv6(0).Extension(60).Extension(17, 1).Udp(), {.protocol = 1});
  const SFlowElement snap =
      SampledHeader(Frame().Ethernet(70).Hex("aaaa030000000800").Ipv4().Udp());
  const SFlowElement wifi =
      SampledHeader(Frame().Hex("0803").Hex(std::string(56, '1')), {.protocol = 15});
  const SFlowElement switch_data = {1, Words({100, 1, 200, 2})};
  const SFlowElement gateway4 = {3, Words({1, 2, 3, 2, 1, 1, 65001, 2, 1, 65002, 1, 100, 50})};
  return {
      {"Headers", SFlowPacket()
                      .Flow({.elements = {tcp}})
                      .Flow({.elements = {ip6, snap}, .expanded = true})
                      .Flow({.elements = {wifi}})
                      .Build()},
      {"EveryElement", SFlowPacket().Flow({.elements = EveryFlowElement()}).Build()},
      {"EveryBlock", SFlowPacket()
                         .Agent(SFlowAddress6("2001:db8::7"))
                         .Counters({.elements = EveryCounterBlock()})
                         .Counters({.elements = {{5, CountedWords(7)}}, .expanded = true})
                         .Sample(4097, Words({4, 1}))
                         .Flow({.elements = {tcp}})
                         .Build()},
      {"Version4", SFlowPacket(4)
                       .Flow({.elements = {tcp_v4,
                                           switch_data,
                                           gateway4,
                                           {2, Join({SFlowAddress("10.1.1.1"), Words({24, 16})})},
                                           {4, Join({SFlowText("user"), SFlowText("")})},
                                           {5, Join({Words({1}), SFlowText("http://x/")})}}})
                       .Flow({.elements = {PacketData4(2)}})
                       .Flow({.elements = {PacketData6(3)}})
                       .Counters({.elements = {{1, Join({GenericCounters(), CountedWords(13)})}},
                                  .block_version = 2})
                       .Build()},
      {"Version2", SFlowPacket(2)
                       .Flow({.elements = {tcp_v4, {3, Words({1, 2, 3, 2, 65001, 65002})}}})
                       .Counters({.elements = {{1, CountedWords(7)}}, .block_version = 7})
                       .Build()},
  };
}

}  // namespace flow::test
