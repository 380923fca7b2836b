// SPDX-License-Identifier: Apache-2.0
#include "host/scale/flow_blocks.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/base/printable.h"
#include "host/names/key_text.h"
#include "host/scale/row_binary.h"
#include "host/store/flow_sides.h"
#include "host/store/session.h"

namespace flow::host {
namespace {

// Enough for a server to work well, and no more than waits in memory with ease.
constexpr std::uint32_t kFullRows = std::uint32_t{1} << 18;
static_assert(kFullRows <= kMostBlockRows);
constexpr std::size_t kRowBytes = 224;  // about
constexpr std::size_t kMostExporters = std::size_t{1} << 17;
constexpr std::size_t kNoAddress = 16;

std::string AddressOfExporter(const StandIns& stand_ins, std::string_view key) {
  std::string bytes;
  const std::string text = ReadableKey(KeyKind::kGuess, RealKey(stand_ins, KeyKind::kGuess, key));
  const auto address = IpAddress::Parse(text);
  if (!address || *address == IpAddress()) return std::string(kNoAddress, '\0');
  RowBinary(&bytes).Address(address->bytes());
  return bytes;
}

}  // namespace

FlowBlocks::FlowBlocks(const Sending& sending, const StandIns& stand_ins, NextNumber next,
                       Take take)
    : sending_(sending), stand_ins_(stand_ins), next_(std::move(next)), take_(std::move(take)) {}

void FlowBlocks::Begin(std::int64_t bucket) {
  block_ = {};
  block_.table = "raw_flows";
  block_.collector = sending_.collector;
  block_.run = sending_.run;
  block_.bucket = bucket;
  block_.number = next_();
  begin_.clear();
  RowBinary(&begin_)
      .Put(static_cast<std::uint32_t>(bucket))
      .Text(block_.collector)
      .Put(block_.run)
      .Put(block_.number);
  sums_ = {};
}

void FlowBlocks::Add(std::int64_t bucket, const FlowBatch& batch) {
  texts_.clear();
  for (const std::string& text : batch.texts) texts_.push_back(Utf8(text));
  std::size_t left = batch.table.size();
  batch.table.ForEach([&](std::string_view key, const FlowTotals& flow) {
    if (block_.rows > 0 && (block_.bucket != bucket || block_.rows == kFullRows)) Flush();
    if (block_.rows == 0) {
      Begin(bucket);
      block_.body.reserve(std::min<std::size_t>(left, kFullRows) * kRowBytes);
    }
    --left;
    Put(key, flow);
    sums_.Add(flow);
  });
}

void FlowBlocks::Flush() {
  if (block_.rows == 0) return;
  block_.bytes = sums_.bytes;
  block_.packets = sums_.packets;
  take_(std::exchange(block_, {}));
}

std::string_view FlowBlocks::TextOf(std::uint32_t number) const {
  return number == 0 ? std::string_view() : std::string_view(texts_[number - 1]);
}

// Flows of several exporters that are one have none.
std::string_view FlowBlocks::ExporterBytes(std::string_view key) {
  const auto known = exporters_.find(key);
  if (known != exporters_.end()) return known->second;
  if (exporters_.size() >= kMostExporters) exporters_.clear();
  return exporters_.emplace(key, AddressOfExporter(stand_ins_, key)).first->second;
}

void FlowBlocks::Put(std::string_view key, const FlowTotals& flow) {
  Session session{};
  if (!ReadSession(key, &session)) session = {};
  const FlowVolume volume(flow);
  const auto [source, destination] = SidesOf(session, volume);
  RowBinary row(&block_.body);
  const auto hop = [&](std::uint32_t address) {
    constexpr std::uint8_t kNone[kNoAddress]{};
    address == 0 ? row.Fixed(kNone) : row.Address(IpAddress::Ipv4(address).bytes());
  };
  row.Raw(begin_).Put(block_.rows);
  row.Put(FirstOf(flow)).Put(flow.last_ms);
  row.Address(session.AddressOf(source.end)).Address(session.AddressOf(destination.end));
  row.Put(source.end.port).Put(destination.end.port).Put(session.protocol);
  row.Put(volume.bytes[source.way]).Put(volume.packets[source.way]);
  row.Put(volume.bytes[destination.way]).Put(volume.packets[destination.way]);
  row.Put(flow.records).Put(static_cast<std::uint8_t>(flow.closes != 0));
  const std::string_view exporter = ExporterBytes(session.exporter);
  row.Fixed({reinterpret_cast<const std::uint8_t*>(exporter.data()), exporter.size()});
  row.Put(source.end.interface).Put(destination.end.interface);
  row.Put(flow.as_numbers[source.way]).Put(flow.as_numbers[destination.way]);
  hop(flow.next_hops[0]);
  hop(flow.next_hops[1]);
  row.Text(TextOf(flow.vrf)).Text(TextOf(flow.app));
  row.Text(TextOf(flow.user != 0 ? flow.user : flow.text)).Text(TextOf(flow.tag));
  row.Fixed(flow.macs[source.way]).Fixed(flow.macs[destination.way]).Flush();
  ++block_.rows;
  block_.ends.push_back(static_cast<std::uint32_t>(block_.body.size()));
}

}  // namespace flow::host
