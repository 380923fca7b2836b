// SPDX-License-Identifier: Apache-2.0
#include "host/scale/flow_messages.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

#include "host/names/key_text.h"

namespace flow::host {
namespace {

// As flowhost.proto has them.
namespace field {

constexpr MessageField kCollector{"collector", 1};
constexpr MessageField kRun{"run", 2};
constexpr MessageField kNumber{"number", 3};
constexpr MessageField kMinute{"minute", 4};
constexpr MessageField kSamplerAddress{"sampler_address", 5};
constexpr MessageField kTimeFlowStart{"time_flow_start_ns", 6};
constexpr MessageField kTimeFlowEnd{"time_flow_end_ns", 7};
constexpr MessageField kTimeReceived{"time_received_ns", 8};
constexpr MessageField kBytes{"bytes", 9};
constexpr MessageField kPackets{"packets", 10};
constexpr MessageField kEtherType{"etype", 11};
constexpr MessageField kProtocol{"proto", 12};
constexpr MessageField kSourceAddress{"src_addr", 13};
constexpr MessageField kDestinationAddress{"dst_addr", 14};
constexpr MessageField kSourcePort{"src_port", 15};
constexpr MessageField kDestinationPort{"dst_port", 16};
constexpr MessageField kInterfaceIn{"in_if", 17};
constexpr MessageField kInterfaceOut{"out_if", 18};
constexpr MessageField kSourceAs{"src_as", 19};
constexpr MessageField kDestinationAs{"dst_as", 20};
constexpr MessageField kNextHop{"next_hop", 21};
constexpr MessageField kBgpNextHop{"bgp_next_hop", 22};
constexpr MessageField kSourceMac{"src_mac", 23};
constexpr MessageField kDestinationMac{"dst_mac", 24};
constexpr MessageField kVrf{"vrf", 25};
constexpr MessageField kApp{"app", 26};
constexpr MessageField kUser{"user", 27};
constexpr MessageField kTag{"tag", 28};

}  // namespace field

constexpr std::uint64_t kEthernetIpv4 = 0x0800;
constexpr std::uint64_t kEthernetIpv6 = 0x86DD;
constexpr std::uint64_t kNanosPerSecond = 1'000'000'000;

// Times before 1970 are none.
std::uint64_t Nanoseconds(std::int64_t milliseconds) {
  constexpr std::uint64_t kNanosPerMilli = 1'000'000;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(milliseconds, 0)) * kNanosPerMilli;
}

// An address, without a string on the heap for each.
class AddressText {
 public:
  explicit AddressText(std::span<const std::uint8_t> bytes) {
    inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text_, sizeof(text_));
  }
  explicit AddressText(std::uint32_t ipv4) : AddressText(IpAddress::Ipv4(ipv4).bytes()) {}
  operator std::string_view() const { return text_; }

 private:
  char text_[INET6_ADDRSTRLEN] = "";
};

std::string MacText(const std::uint8_t* mac) {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3],
                     mac[4], mac[5]);
}

bool IsZero(const std::uint8_t* mac) {
  return std::all_of(mac, mac + 6, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

FlowSums FlowMessages::Add(std::int64_t bucket, const FlowBatch& batch) {
  texts_.clear();
  for (const std::string& text : batch.texts) texts_.push_back(Utf8(text));
  FlowSums lost;
  batch.table.ForEach([&](std::string_view key, const FlowTotals& flow) {
    if (!Put(bucket, key, flow)) lost.Add(flow);
  });
  return lost;
}

const std::string& FlowMessages::ExporterOf(std::string_view key) {
  constexpr std::size_t kMostExporters = std::size_t{1} << 17;
  const auto known = exporters_.find(key);
  if (known != exporters_.end()) return known->second;
  if (exporters_.size() >= kMostExporters) exporters_.clear();
  std::string text = ReadableKey(KeyKind::kGuess, RealKey(stand_ins_, KeyKind::kGuess, key));
  const auto address = IpAddress::Parse(text);
  if (!address || *address == IpAddress()) text.clear();
  return exporters_.emplace(key, text).first->second;
}

// False when a direction could not be put.
bool FlowMessages::Put(std::int64_t bucket, std::string_view key, const FlowTotals& flow) {
  Session session{};
  if (!ReadSession(key, &session)) session = {};
  const FlowVolume volume(flow);
  const auto [source, destination] = SidesOf(session, volume);
  const std::string& exporter = ExporterOf(session.exporter);
  bool is_put = true;
  for (const auto& [from, to] : {std::pair(source, destination), std::pair(destination, source)}) {
    // One without a volume tells that it was.
    if (volume.IsEmpty(from.way) && (&from.end != &source.end || !volume.IsEmpty(to.way))) continue;
    Write(bucket, session, exporter, flow, volume, from, to);
    is_put = sink_.Put(Topic::kFlows, exporter, sink_.row().End()) && is_put;
  }
  return is_put;
}

void FlowMessages::Write(std::int64_t bucket, const Session& session, std::string_view exporter,
                         const FlowTotals& flow, const FlowVolume& volume, const FlowSide& from,
                         const FlowSide& to) {
  MessageRow& row = sink_.row();
  const auto minute = static_cast<std::uint64_t>(bucket);
  row.Begin();
  row.Add(field::kCollector, collector_);
  row.Add(field::kRun, run_);
  row.Add(field::kNumber, ++number_);
  row.Add(field::kMinute, minute);
  if (!exporter.empty()) row.Add(field::kSamplerAddress, exporter);
  row.Add(field::kTimeFlowStart, Nanoseconds(FirstOf(flow)));
  row.Add(field::kTimeFlowEnd, Nanoseconds(flow.last_ms));
  row.Add(field::kTimeReceived, minute * kNanosPerSecond);
  row.Add(field::kBytes, volume.bytes[from.way]);
  row.Add(field::kPackets, volume.packets[from.way]);
  row.Add(field::kEtherType, session.is_ipv6 ? kEthernetIpv6 : kEthernetIpv4);
  row.Add(field::kProtocol, session.protocol);
  row.Add(field::kSourceAddress, AddressText(session.AddressOf(from.end)));
  row.Add(field::kDestinationAddress, AddressText(session.AddressOf(to.end)));
  row.Add(field::kSourcePort, from.end.port);
  row.Add(field::kDestinationPort, to.end.port);
  row.Add(field::kInterfaceIn, from.end.interface);
  row.Add(field::kInterfaceOut, to.end.interface);
  row.Add(field::kSourceAs, flow.as_numbers[from.way]);
  row.Add(field::kDestinationAs, flow.as_numbers[to.way]);
  if (flow.next_hops[0] != 0) row.Add(field::kNextHop, AddressText(flow.next_hops[0]));
  if (flow.next_hops[1] != 0) row.Add(field::kBgpNextHop, AddressText(flow.next_hops[1]));
  if (!IsZero(flow.macs[from.way])) row.Add(field::kSourceMac, MacText(flow.macs[from.way]));
  if (!IsZero(flow.macs[to.way])) row.Add(field::kDestinationMac, MacText(flow.macs[to.way]));
  AddText(field::kVrf, flow.vrf);
  AddText(field::kApp, flow.app);
  AddText(field::kUser, flow.user != 0 ? flow.user : flow.text);
  AddText(field::kTag, flow.tag);
}

void FlowMessages::AddText(const MessageField& field, std::uint32_t number) {
  if (number != 0) sink_.row().Add(field, std::string_view(texts_[number - 1]));
}

}  // namespace flow::host
