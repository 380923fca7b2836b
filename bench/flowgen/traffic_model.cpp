// SPDX-License-Identifier: Apache-2.0
#include "bench/flowgen/traffic_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace flow::gen {
namespace {

constexpr std::uint16_t kServices[] = {443, 443, 443, 443,  443,  80,   80,  53,
                                       53,  22,  25,  8080, 5222, 3306, 993, 123};
constexpr std::uint8_t kTcpFlags[] = {0x1B, 0x1B, 0x1B, 0x1A, 0x18, 0x10, 0x02, 0x16};

// Both multiply by an odd number, so that hosts are spread and no two have one address.
std::uint32_t HomeAddress(std::uint32_t host) {
  return 0x0A000000 | (((host + 1) * 0x9E3779B1U) & 0x00FFFFFF);
}
std::uint32_t OtherAddress(std::uint32_t host) {
  return 0x40000000 | (((host + 1) * 0x85EBCA6BU) & 0x0FFFFFFF);
}

}  // namespace

TrafficModel::TrafficModel(std::uint64_t seed, std::uint32_t hosts, std::uint64_t records,
                           bool realistic)
    : random_(seed),
      home_hosts_(hosts / 2),
      other_hosts_(hosts - hosts / 2),
      realistic_(realistic) {
  turn_every_ = static_cast<std::uint32_t>(std::clamp<std::uint64_t>(records / other_hosts_, 1, 4));
}

void TrafficModel::Period(std::uint32_t number) {
  if (number == period_) return;
  period_ = number;
  turn_ = 0;
  until_turn_ = 0;
  open_.clear();
  next_open_ = 0;
}

Flow TrafficModel::Next() {
  Flow flow = realistic_ ? OpenFlow() : Conversation();
  DrawVolume(&flow);
  if ((random_.Next() & 1) != 0) {  // the answer rather than the question
    std::swap(flow.source, flow.destination);
    std::swap(flow.source_port, flow.destination_port);
    std::swap(flow.input, flow.output);
    std::swap(flow.source_as, flow.destination_as);
    std::swap(flow.source_mask, flow.destination_mask);
  }
  return flow;
}

// OpenFlow opens a flow or goes on with one; the eldest makes room.
Flow TrafficModel::OpenFlow() {
  constexpr std::uint32_t kNewOfHundred = 27;
  if (!open_.empty() && random_.Below(100) >= kNewOfHundred) {
    return open_[random_.Below(static_cast<std::uint32_t>(open_.size()))];
  }
  const Flow flow = Conversation();
  if (open_.size() < kOpenFlows) {
    open_.push_back(flow);
  } else {
    open_[next_open_++ % kOpenFlows] = flow;
  }
  return flow;
}

// Conversation draws who talks to whom, and which way it takes.
Flow TrafficModel::Conversation() {
  Flow flow{};
  DrawHosts(&flow);
  DrawTransport(&flow);
  const std::uint64_t draw = random_.Next();
  flow.input = static_cast<std::uint16_t>(1 + (draw & 7));
  flow.output = static_cast<std::uint16_t>(9 + (draw >> 3 & 3));
  flow.source_as = 64512;
  flow.destination_as = static_cast<std::uint16_t>(1000 + (flow.destination >> 8) % 500);
  flow.source_mask = 24;
  flow.destination_mask = static_cast<std::uint8_t>(16 + (flow.destination >> 12) % 9);
  flow.next_hop = 0x0AFF0001 + static_cast<std::uint32_t>(draw >> 5 & 3);
  return flow;
}

void TrafficModel::DrawHosts(Flow* flow) {
  std::uint32_t home = 0;
  std::uint32_t other = 0;
  if (realistic_) {
    home = random_.HarmonicBelow(home_hosts_);
    other = random_.HarmonicBelow(other_hosts_);
    until_turn_ = 1;
  } else if (until_turn_ == 0) {
    until_turn_ = turn_every_;
    home = turn_ % home_hosts_;
    other = turn_ % other_hosts_;
    ++turn_;
  } else {
    home = random_.SkewedBelow(home_hosts_);
    other = random_.SkewedBelow(other_hosts_);
  }
  --until_turn_;
  flow->source = HomeAddress(period_ * home_hosts_ + home);
  flow->destination = OtherAddress(period_ * other_hosts_ + other);
}

void TrafficModel::DrawTransport(Flow* flow) {
  const std::uint64_t draw = random_.Next();
  const std::uint64_t kind = draw % 32;
  flow->protocol = kind == 0 ? kIcmp : kind < 8 ? kUdp : kTcp;
  if (flow->protocol == kIcmp) return;
  flow->source_port = static_cast<std::uint16_t>(32'768 + (draw >> 8) % 28'232);
  flow->destination_port = kServices[(draw >> 48) % std::size(kServices)];
  if (flow->protocol == kTcp) flow->tcp_flags = kTcpFlags[(draw >> 52) % std::size(kTcpFlags)];
}

// At most 2,000 packets of 1,500 bytes, mostly a few.
void TrafficModel::DrawVolume(Flow* flow) {
  flow->packets = 1 + random_.SkewedBelow(1 + random_.SkewedBelow(2000));
  flow->bytes = flow->packets * (40 + random_.Below(1461));
  flow->last_ago = random_.Below(10'000);
  flow->first_ago = flow->last_ago;
  if (flow->packets > 1) flow->first_ago += random_.Below(kOldestFlow - 10'000);
}

}  // namespace flow::gen
