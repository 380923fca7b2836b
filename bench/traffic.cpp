// SPDX-License-Identifier: Apache-2.0
#include "bench/traffic.h"

#include <iterator>
#include <utility>

namespace flow::bench {
namespace {

constexpr std::uint32_t kHomeHosts = 2000;
constexpr std::uint32_t kOtherHosts = 4000;
constexpr std::uint16_t kServices[] = {443, 443, 443, 443, 80, 80, 53, 22, 25, 993, 8080, 5222};
constexpr std::uint8_t kTcpFlags[] = {0x1B, 0x1B, 0x1A, 0x18, 0x10, 0x02, 0x16, 0x12};

constexpr std::uint32_t Spread(std::uint32_t n) { return n * 0x9E3779B1U; }

std::uint32_t HomeAddress(std::uint32_t host) { return 0x0A000000 | Spread(host) >> 8; }

std::uint32_t OtherAddress(std::uint32_t host) {
  return (0x40000000 + Spread(host + kHomeHosts) % 0x60000000);
}

std::array<std::uint8_t, 16> Ipv6Of(std::uint32_t address) {
  std::array<std::uint8_t, 16> bytes = {0x20, 0x01, 0x0D, 0xB8};
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[4 + i] = bytes[12 + i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
  }
  return bytes;
}

}  // namespace

std::uint64_t Random::Next() {
  std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
  return z ^ (z >> 31);
}

Flow Traffic::Next() {
  Flow flow{};
  flow.source = HomeAddress(random_.Below(kHomeHosts));
  flow.destination = random_.Below(5) == 0 ? HomeAddress(random_.Below(kHomeHosts))
                                           : OtherAddress(random_.Below(kOtherHosts));
  SetTransport(&flow);
  flow.packets = 1 + random_.Below(200);
  flow.bytes = flow.packets * (64 + random_.Below(1400));
  flow.last = kExportUptime - random_.Below(10'000);
  flow.first = flow.last - random_.Below(60'000);
  flow.input = static_cast<std::uint16_t>(1 + random_.Below(8));
  flow.output = static_cast<std::uint16_t>(9 + random_.Below(4));
  flow.source_as = 64512;
  flow.destination_as = static_cast<std::uint16_t>(1000 + random_.Below(300));
  flow.source_mask = 24;
  flow.destination_mask = static_cast<std::uint8_t>(16 + random_.Below(9));
  flow.next_hop = 0x0AFF0001 + random_.Below(4);
  if (random_.Below(2) == 0) {  // the answer rather than the question
    std::swap(flow.source, flow.destination);
    std::swap(flow.source_port, flow.destination_port);
    std::swap(flow.input, flow.output);
    std::swap(flow.source_as, flow.destination_as);
    std::swap(flow.source_mask, flow.destination_mask);
  }
  flow.source6 = Ipv6Of(flow.source);
  flow.destination6 = Ipv6Of(flow.destination);
  return flow;
}

void Traffic::SetTransport(Flow* flow) {
  constexpr std::uint8_t kIcmp = 1;
  constexpr std::uint8_t kTcp = 6;
  constexpr std::uint8_t kUdp = 17;
  const std::uint32_t draw = random_.Below(20);
  flow->protocol = draw == 0 ? kIcmp : draw < 6 ? kUdp : kTcp;
  if (flow->protocol == kIcmp) return;
  flow->source_port = static_cast<std::uint16_t>(1024 + random_.Below(64000));
  flow->destination_port = kServices[random_.Below(std::size(kServices))];
  if (flow->protocol == kTcp) flow->tcp_flags = kTcpFlags[random_.Below(std::size(kTcpFlags))];
}

}  // namespace flow::bench
