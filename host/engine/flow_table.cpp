// SPDX-License-Identifier: Apache-2.0
#include "host/engine/flow_table.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "host/base/heap_account.h"
#include "host/engine/key_bytes.h"

namespace flow::host {
namespace {

// How volumes follow from the meters; more than one may be true.
constexpr std::uint8_t kAsMeters = 1;  // as NetFlow has them
constexpr std::uint8_t kOneWay = 2;    // both directions' in one, as sFlow has them
constexpr std::uint8_t kNoVolume = 4;

std::uint8_t FormsOf(const FlowTotals& flow) {
  const std::uint64_t* const meters = flow.meters;
  const std::uint64_t reverse = flow.bytes[1] | flow.packets[1];
  const bool as_meters = ((flow.bytes[0] ^ meters[0]) | (flow.bytes[1] ^ meters[1]) |
                          (flow.packets[0] ^ meters[2]) | (flow.packets[1] ^ meters[3])) == 0;
  const bool one_way = ((flow.bytes[0] ^ (meters[0] + meters[1])) |
                        (flow.packets[0] ^ (meters[2] + meters[3])) | reverse) == 0;
  const bool none = (flow.bytes[0] | flow.packets[0] | reverse) == 0;
  return static_cast<std::uint8_t>((as_meters ? kAsMeters : 0) | (one_way ? kOneWay : 0) |
                                   (none ? kNoVolume : 0));
}

bool HasBeside(const FlowTotals& flow) {
  static_assert(offsetof(FlowTotals, as_numbers) % 8 == 0);
  static_assert(offsetof(FlowTotals, user) == offsetof(FlowTotals, as_numbers) + 24);
  std::array<std::uint64_t, 3> words{};
  std::memcpy(words.data(), flow.as_numbers, sizeof(words));
  std::uint64_t macs[2] = {};
  std::memcpy(macs, flow.macs, sizeof(flow.macs));
  return (words[0] | words[1] | words[2] | macs[0] | macs[1] | flow.user | flow.text |
          flow.duration_ms) != 0;
}

// A packed key of any kind and length.
class WholeKey {
 public:
  explicit WholeKey(std::string_view key) : size_(PackSession(key, bytes_)) {
    if (IsText({bytes_, size_})) size_ += key.copy(bytes_ + size_, sizeof(bytes_) - size_);
  }
  [[nodiscard]] std::string_view Packed() const { return {bytes_, size_}; }

 private:
  char bytes_[KeyTable::kLongestKey];
  std::size_t size_;
};

}  // namespace

// All zero is a new flow.
struct FlowTable::Narrow {
  static constexpr std::uint8_t kWide = 0xFF;  // as its forms

  std::uint32_t meters[4];
  std::uint32_t first_low;  // milliseconds since 1970
  std::uint16_t first_high;
  std::uint16_t updates;
  std::uint32_t span_ms;  // between first and last
  std::uint16_t closes;
  std::uint16_t records;
  std::uint32_t beside;  // its place there, or among wide ones, from 1
  std::uint16_t tag;
  std::uint8_t forms;
  std::uint8_t has_times;

  [[nodiscard]] std::int64_t First() const {
    return static_cast<std::int64_t>(std::uint64_t{first_high} << 32 | first_low);
  }
};

void FlowTable::Merge(std::string_view key, const FlowTotals& part) {
  MergePacked(WholeKey(key).Packed(), part);
}

std::optional<FlowTotals> FlowTable::Find(std::string_view key) const {
  const std::uint64_t* const values = rows_.Find(WholeKey(key).Packed());
  return values == nullptr ? std::nullopt : std::optional(Whole(values));
}

FlowTotals FlowTable::Whole(const std::uint64_t* values) const {
  const Narrow& row = *reinterpret_cast<const Narrow*>(values);
  if (row.forms == Narrow::kWide) return wide_[row.beside - 1];
  static_assert(sizeof(Narrow) == kRowWords * sizeof(std::uint64_t));
  FlowTotals flow{};
  for (std::size_t i = 0; i < 4; ++i) flow.meters[i] = row.meters[i];
  const std::uint64_t* const meters = flow.meters;
  if ((row.forms & kAsMeters) != 0) {
    std::memcpy(flow.bytes, meters, sizeof(flow.bytes));
    std::memcpy(flow.packets, meters + 2, sizeof(flow.packets));
  } else if ((row.forms & kOneWay) != 0) {
    flow.bytes[0] = meters[0] + meters[1];
    flow.packets[0] = meters[2] + meters[3];
  }
  flow.first_ms = row.First();
  flow.last_ms = flow.first_ms + row.span_ms;
  flow.tag = row.tag;
  flow.closes = row.closes;
  flow.updates = row.updates;
  flow.has_times = row.has_times;
  flow.records = row.records;
  if (row.beside == 0) return flow;
  const Beside& beside = beside_[row.beside - 1];
  std::memcpy(flow.as_numbers, beside.as_numbers, sizeof(beside.as_numbers));
  std::memcpy(flow.next_hops, beside.next_hops, sizeof(beside.next_hops));
  std::memcpy(flow.macs, beside.macs, sizeof(beside.macs));
  flow.vrf = beside.vrf;
  flow.app = beside.app;
  flow.user = beside.user;
  flow.text = beside.text;
  flow.duration_ms = beside.duration_ms;
  return flow;
}

void FlowTable::AddPart(std::uint64_t* values, const FlowTotals& part) {
  auto* const row = reinterpret_cast<Narrow*>(values);
  if (!AddNarrow(row, part)) AddWide(row, part);
}

// What most parts of flows have and no more.
struct FlowTable::Plain {
  std::uint64_t meters[4];
  std::int64_t first_ms;
  std::int64_t last_ms;
  std::uint64_t updates;
  std::uint64_t closes;
  std::uint64_t records;
  std::uint32_t tag;
  std::uint8_t forms;
  std::uint8_t has_times;
};

// False where the sum does not fit, and nothing was done.
inline bool FlowTable::AddPlain(Narrow* row, const Plain& part) {
  const std::uint8_t forms = part.forms & (row->forms == 0 ? 0xFF : row->forms);
  if (forms == 0 || row->forms == Narrow::kWide) return false;
  std::uint64_t meters[4];
  std::uint64_t high = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    meters[i] = row->meters[i] + part.meters[i];
    high |= meters[i] | part.meters[i];
  }
  FlowTimes times{row->First(), row->First() + row->span_ms, row->updates != 0,
                  row->has_times != 0};
  times.Add({part.first_ms, part.last_ms, part.updates != 0, part.has_times != 0});
  const auto span = static_cast<std::uint64_t>(times.last_ms - times.first_ms);
  const auto first = static_cast<std::uint64_t>(times.first_ms);
  const std::uint64_t updates = row->updates + part.updates;
  const std::uint64_t closes = row->closes + part.closes;
  const std::uint64_t records = row->records + part.records;
  high |= span | first >> 16 | (updates | closes | records | part.tag) << 16;
  if (high >> 32 != 0) return false;
  for (std::size_t i = 0; i < 4; ++i) row->meters[i] = static_cast<std::uint32_t>(meters[i]);
  row->first_low = static_cast<std::uint32_t>(first);
  row->first_high = static_cast<std::uint16_t>(first >> 32);
  row->span_ms = static_cast<std::uint32_t>(span);
  row->has_times = times.are_told ? 1 : 0;
  row->updates = static_cast<std::uint16_t>(updates);
  row->closes = static_cast<std::uint16_t>(closes);
  row->records = static_cast<std::uint16_t>(records);
  row->forms = forms;
  if (part.tag != 0) row->tag = static_cast<std::uint16_t>(part.tag);
  return true;
}

bool FlowTable::AddNarrow(Narrow* row, const FlowTotals& part) {
  const Plain plain{{part.meters[0], part.meters[1], part.meters[2], part.meters[3]},
                    part.first_ms,
                    part.last_ms,
                    part.updates,
                    part.closes,
                    part.records,
                    part.tag,
                    FormsOf(part),
                    static_cast<std::uint8_t>(part.has_times)};
  if (!AddPlain(row, plain)) return false;
  if (HasBeside(part)) AddBeside(row, part);
  return true;
}

void FlowTable::ShownRow::Set(std::string_view packed, const std::uint64_t* of_row) {
  static_assert(sizeof(values) == kRowWords * sizeof(*of_row));
  std::memcpy(values, of_row, sizeof(values));  // which may be read as another type
  shown = PackedShown(packed, key);
  hash = HashKey(Key());
}

bool FlowTable::MergeShown(const ShownRow& from, bool have_ends) {
  Narrow row;
  std::memcpy(&row, from.values, sizeof(row));
  if (row.beside != 0 || row.tag != 0) return false;
  const ShownKey& shown = from.shown;
  // Volumes of one way turn round with the flow.
  const std::uint8_t forms = shown.turns ? row.forms & ~kOneWay : row.forms;
  if (forms == 0) return false;
  const int turn = shown.turns ? 1 : 0;
  const Plain plain{
      {row.meters[turn], row.meters[1 - turn], row.meters[2 + turn], row.meters[3 - turn]},
      row.First(),
      row.First() + row.span_ms,
      row.updates,
      have_ends ? row.closes : std::uint64_t{0},
      row.records,
      0,
      forms,
      row.has_times};
  return AddPlain(reinterpret_cast<Narrow*>(rows_.FindOrAdd(from.Key(), from.hash)), plain);
}

void FlowTable::AddBeside(Narrow* row, const FlowTotals& part) {
  FlowTotals flow{};
  if (row->beside == 0) {
    const HeapScope scope(nullptr);
    beside_.emplace_back();
    row->beside = static_cast<std::uint32_t>(beside_.size());
  } else {
    flow = Whole(reinterpret_cast<const std::uint64_t*>(row));
  }
  MergeRecordWords(part, &flow);
  Beside& beside = beside_[row->beside - 1];
  std::memcpy(beside.as_numbers, flow.as_numbers, sizeof(beside.as_numbers));
  std::memcpy(beside.next_hops, flow.next_hops, sizeof(beside.next_hops));
  std::memcpy(beside.macs, flow.macs, sizeof(beside.macs));
  beside.vrf = flow.vrf;
  beside.app = flow.app;
  beside.user = flow.user;
  beside.text = part.text != 0 ? part.text : flow.text;
  beside.duration_ms = std::max(flow.duration_ms, part.duration_ms);
}

void FlowTable::AddWide(Narrow* row, const FlowTotals& part) {
  if (row->forms != Narrow::kWide) {
    const HeapScope scope(nullptr);
    wide_.push_back(Whole(reinterpret_cast<const std::uint64_t*>(row)));
    *row = {};
    row->forms = Narrow::kWide;
    row->beside = static_cast<std::uint32_t>(wide_.size());
  }
  MergeFlow(part, &wide_[row->beside - 1]);
}

void FlowTable::Replace(std::uint64_t* values, const FlowTotals& flow) {
  auto* const row = reinterpret_cast<Narrow*>(values);
  if (row->forms == Narrow::kWide) {
    wide_[row->beside - 1] = flow;
    return;
  }
  const std::uint32_t beside = row->beside;
  *row = {};
  if (beside != 0) {
    beside_[beside - 1] = {};
    row->beside = beside;
  }
  AddPart(values, flow);
}

void FlowTable::ForgetEnds() {
  rows_.ForEach([](std::string_view, const std::uint64_t* values) {
    reinterpret_cast<Narrow*>(const_cast<std::uint64_t*>(values))->closes = 0;
  });
  for (FlowTotals& flow : wide_) flow.closes = 0;
}

void FlowTable::Absorb(FlowTable&& other) {
  if (size() == 0) {
    *this = std::move(other);
    return;
  }
  // What stands beside another table's rows is behind what stands beside these.
  const auto before = static_cast<std::uint32_t>(beside_.size());
  const auto wide_before = static_cast<std::uint32_t>(wide_.size());
  if (!other.beside_.empty() || !other.wide_.empty()) {
    other.rows_.ForEach([&](std::string_view, const std::uint64_t* values) {
      auto& row = *reinterpret_cast<Narrow*>(const_cast<std::uint64_t*>(values));
      if (row.beside != 0) row.beside += row.forms == Narrow::kWide ? wide_before : before;
    });
    const HeapScope scope(nullptr);
    beside_.insert(beside_.end(), other.beside_.begin(), other.beside_.end());
    wide_.insert(wide_.end(), other.wide_.begin(), other.wide_.end());
  }
  rows_.Absorb(std::move(other.rows_),
               [this](std::uint64_t* into, std::uint64_t* part) { AddPart(into, Whole(part)); });
}

}  // namespace flow::host
