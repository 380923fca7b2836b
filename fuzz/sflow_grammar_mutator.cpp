// SPDX-License-Identifier: Apache-2.0
#include <iterator>
#include <vector>

#include "fuzz/grammar.h"
#include "tests/support/sflow_builder.h"

namespace flow::fuzz {
namespace {

using test::Frame;
using test::SFlowElement;

constexpr std::uint8_t kProtocols[] = {1, 6, 17, 47, 50, 58};
constexpr std::uint8_t kExtensions[] = {0, 43, 44, 51, 60};

std::uint16_t Port(Random& random) {
  return static_cast<std::uint16_t>(random.OneIn(2) ? random.Below(1200) : random());
}

void AddTransport(Random& random, std::uint8_t protocol, Frame* frame) {
  if (protocol == 6) {
    frame->Tcp(Port(random), Port(random), static_cast<std::uint8_t>(random()));
  } else {
    frame->Udp(Port(random), Port(random));
  }
}

void AddIpv4(Random& random, Frame* frame) {
  const std::uint8_t protocol = kProtocols[random.Below(std::size(kProtocols))];
  const auto words = static_cast<std::uint8_t>(random.OneIn(4) ? random.Below(16) : 5);
  frame->Ipv4({.version_and_length = static_cast<std::uint8_t>(0x40 | words),
               .protocol = protocol,
               .source = random(),
               .fragment = static_cast<std::uint16_t>(random.OneIn(4) ? random() : 0)});
  AddTransport(random, protocol, frame);
}

void AddIpv6(Random& random, Frame* frame) {
  const std::uint8_t protocol = kProtocols[random.Below(std::size(kProtocols))];
  std::uint8_t next[4] = {protocol, protocol, protocol, protocol};
  const std::uint32_t extensions = random.Below(std::size(next));
  for (std::uint32_t i = 0; i < extensions; ++i) {
    next[i] = kExtensions[random.Below(std::size(kExtensions))];
  }
  frame->Ipv6(next[0]);
  for (std::uint32_t i = 0; i < extensions; ++i) {
    frame->Extension(next[i + 1], static_cast<std::uint8_t>(random.Below(3)));
  }
  AddTransport(random, protocol, frame);
}

// Of one of the headers' protocols: Ethernet, IPv4, IPv6, or one that is not looked into.
SFlowElement MakeHeader(Random& random, bool has_stripped) {
  test::HeaderFields fields = {.protocol = 1, .packet_size = random()};
  if (!has_stripped) fields.stripped.reset();
  Frame frame;
  const bool is_ipv6 = random.OneIn(3);
  if (random.OneIn(3)) {
    fields.protocol = is_ipv6 ? 12 : 11;
  } else if (random.OneIn(6)) {
    fields.protocol = random.Below(18);
  } else {
    const std::uint16_t type = is_ipv6 ? 0x86DD : 0x0800;
    const bool has_tag = random.OneIn(3);
    frame.Ethernet(has_tag ? std::uint16_t{0x8100} : type);
    if (has_tag) frame.Vlan(static_cast<std::uint16_t>(random()), type);
  }
  if (is_ipv6) {
    AddIpv6(random, &frame);
  } else {
    AddIpv4(random, &frame);
  }
  if (random.OneIn(6)) frame.Cut(random.Below(frame.size() + 1));
  return test::SampledHeader(frame, fields);
}

// Extended data of versions 2 and 4.
std::vector<SFlowElement> OldElements() {
  using test::Join;
  using test::SFlowText;
  using test::Words;
  return {{1, Words({100, 1, 200, 2})},
          {2, Join({test::SFlowAddress("10.1.1.1"), Words({24, 16})})},
          {3, Words({1, 2, 3, 2, 1, 1, 65001, 2, 1, 65002, 1, 100, 50})},
          {4, Join({SFlowText("user"), SFlowText("")})},
          {5, Join({Words({1}), SFlowText("http://x/")})}};
}

void AddFlow(Random& random, bool is_old, test::SFlowPacket* packet) {
  static const auto new_elements = test::EveryFlowElement();
  static const auto old_elements = OldElements();
  const auto& elements = is_old ? old_elements : new_elements;
  test::SFlowFlow flow{.expanded = random.OneIn(2), .rate = random.OneIn(2) ? 1 : random()};
  if (is_old || !random.OneIn(3)) flow.elements.push_back(MakeHeader(random, !is_old));
  if (is_old && random.OneIn(3)) {
    flow.elements[0] = random.OneIn(2) ? test::PacketData4(2) : test::PacketData6(3);
  }
  for (std::uint32_t n = random.Below(4); n > 0; --n) {
    flow.elements.push_back(elements[random.Below(elements.size())]);
  }
  packet->Flow(flow);
}

void AddCounters(Random& random, bool is_old, test::SFlowPacket* packet) {
  static const auto blocks = test::EveryCounterBlock();
  test::SFlowCounters counters{.expanded = random.OneIn(2), .block_version = 1 + random.Below(8)};
  for (std::uint32_t n = is_old ? 1 : random.Below(3); n > 0; --n) {
    counters.elements.push_back(blocks[random.Below(blocks.size())]);
  }
  packet->Counters(counters);
}

}  // namespace

Datagram MakeDatagram(Random& random) {
  static const auto datagrams = test::SFlowDatagrams();
  const auto exporter = static_cast<std::uint8_t>(random.Below(4));
  if (random.OneIn(4)) return {exporter, datagrams[random.Below(datagrams.size())].bytes};
  constexpr std::uint32_t kVersions[] = {5, 5, 5, 4, 2};
  const std::uint32_t version = kVersions[random.Below(std::size(kVersions))];
  test::SFlowPacket packet(version);
  for (std::uint32_t left = 1 + random.Below(4); left > 0; --left) {
    if (random.OneIn(4)) {
      AddCounters(random, version < 5, &packet);
    } else {
      AddFlow(random, version < 5, &packet);
    }
  }
  return {exporter, packet.Build()};
}

}  // namespace flow::fuzz
