// SPDX-License-Identifier: Apache-2.0
#include "host/engine/stats_engine.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "host/base/heap_account.h"

namespace flow::host {
namespace {

std::string_view KeyText(int length, const char* key) {
  return {key, static_cast<std::size_t>(std::max(length, 0))};
}

// A negative index is beyond all columns.
std::size_t Column(int meter) { return static_cast<std::size_t>(meter); }

std::string_view TextOrEmpty(const char* text) { return text == nullptr ? "" : text; }

// Decimal, negative from 2147483648 on.
std::uint32_t AsNumberOf(std::string_view key) {
  const bool is_negative = key.starts_with('-');
  std::uint32_t number = 0;
  for (const char digit : key.substr(is_negative ? 1 : 0)) {
    number = number * 10 + static_cast<std::uint32_t>(digit - '0');
  }
  return is_negative ? 0 - number : number;
}

std::uint32_t DigitOf(char digit) {
  return static_cast<std::uint32_t>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
}

// "C0.A8.01.0A"; of IPv6 there is none.
std::uint32_t AddressOf(std::string_view key) {
  constexpr std::size_t kLength = 11;
  std::uint32_t address = 0;
  if (key.size() != kLength) return 0;
  for (std::size_t i = 0; i < kLength; i += 3) {
    address = address << 8 | DigitOf(key[i]) << 4 | DigitOf(key[i + 1]);
  }
  return address;
}

// "00:1B:21:3A:4F:5C".
void ReadMac(std::string_view key, std::uint8_t* mac) {
  constexpr std::size_t kLength = 17;
  if (key.size() != kLength) return;
  for (std::size_t i = 0; i < kLength; i += 3) {
    *mac++ = static_cast<std::uint8_t>(DigitOf(key[i]) << 4 | DigitOf(key[i + 1]));
  }
}

std::int64_t Milliseconds(const TimePair& time) { return time.seconds * 1000 + time.milliseconds; }

}  // namespace

StatsEngine::StatsEngine(StatsStore& store, ChannelSink& channels)
    : store_(&store), channels_(channels) {}

// Calls are nearly all of recent rows: no more than that is in their functions, which so need to
// save few registers, and the rest takes their arguments as they are.
template <class... Increments>
[[gnu::always_inline]] inline bool StatsEngine::UpdateRecent(const GUID& group,
                                                             std::string_view key,
                                                             const Increments&... increments) {
  const RecentRows::Row* const recent = store_->recent().Find(group, key);
  if (recent == nullptr || !((increments.column < recent->columns) && ...)) return false;
  ((recent->values[increments.column] += increments.value), ...);
  return true;
}

template <class... MetersAndValues>
Status StatsEngine::UpdateOther(const GUID& group, int keyLength, const char* key,
                                MetersAndValues... numbers) {
  constexpr std::size_t kCount = sizeof...(numbers);
  const auto list = std::bit_cast<std::array<Increment, kCount / 2>>(
      std::array<std::uint64_t, kCount>{static_cast<std::uint64_t>(numbers)...});
  UpdateAny(group, KeyText(keyLength, key), std::span<const Increment, kCount / 2>(list));
  return kStatusOk;
}

template <std::size_t kExtent>
inline void StatsEngine::UpdateAny(const GUID& group, std::string_view key,
                                   std::span<const Increment, kExtent> increments) {
  GroupCounters& counters = store_->Group(group);
  if (counters.info.word != RecordWord::kNone) HearRecordWord(counters, key, increments);
  bool all_known = true;
  for (const Increment& each : increments) all_known &= each.column < counters.table_columns;
  if (!all_known) return UpdatePartly(counters, key, increments);
  UpdateKnown(counters, key, increments);
}

void StatsEngine::UpdatePartly(GroupCounters& counters, std::string_view key,
                               std::span<const Increment> increments) {
  const auto is_known = [&](const Increment& each) { return each.column < counters.columns; };
  std::array<Increment, UpdateQueue::kMostIncrements> known;
  const auto end = std::ranges::copy_if(increments, known.begin(), is_known).out;
  const auto count = static_cast<std::size_t>(end - known.begin());
  store_->stray_updates += increments.size() - count;
  if (count == 0) return;
  const std::span<const Increment> rest(known.data(), count);
  if (!counters.flows) return UpdateKnown(counters, key, rest);
  FlowTotals& flow = FlowOf(key);
  for (const Increment& each : rest) flow.meters[each.column] += each.value;
}

template <std::size_t kExtent>
inline void StatsEngine::UpdateKnown(GroupCounters& counters, std::string_view key,
                                     std::span<const Increment, kExtent> increments) {
  // A table that fits the caches needs no queue.
  constexpr std::size_t kSmallTable = 1024;
  KeyTable& table = counters.table;
  std::uint64_t* row = nullptr;
  if (key.size() > UpdateQueue::kLongestKey) {
    row = table.FindOrAdd(key);
  } else if (const std::uint32_t hash = HashKey(key); table.size() > kSmallTable) {
    queue_.AddIncrements(*store_, counters, key, hash, increments);
    return;
  } else {
    row = table.FindOrAdd(key, hash);
    store_->NoteRecent(counters, key, row);
  }
  for (const Increment& increment : increments) row[increment.column] += increment.value;
}

// A meter with the number 1 or 3 of AS numbers is the source's, 2 or 4 the destination's; of AS
// numbers by interface, which tell those at home as well, and of MAC addresses it is 0 and 1.
void StatsEngine::HearRecordWord(const GroupCounters& counters, std::string_view key,
                                 std::span<const Increment> increments) {
  has_record_words_ = true;
  const std::size_t meter = increments.back().column;
  switch (counters.info.word) {
    case RecordWord::kAsNumber:
      record_.as_numbers[meter != 0 && meter % 2 == 0 ? 1 : 0] = AsNumberOf(key);
      break;
    case RecordWord::kAsInterface:
      record_.as_numbers[meter == 1 ? 1 : 0] = AsNumberOf(key.substr(0, key.find('\\')));
      break;
    case RecordWord::kIpNextHop:
      record_.next_hops[0] = AddressOf(key);
      break;
    case RecordWord::kBgpNextHop:
      record_.next_hops[1] = AddressOf(key);
      break;
    case RecordWord::kVrf:
      record_.vrf = vrf_.NumberOf(key, store_);
      break;
    case RecordWord::kApplication:
      record_.app = app_.NumberOf(key, store_);
      break;
    case RecordWord::kUser:
      record_.user = user_.NumberOf(key, store_);
      break;
    case RecordWord::kMac:
      ReadMac(key, record_.macs[meter == 1 ? 1 : 0]);
      break;
    case RecordWord::kFlow:
      is_reverse_ = is_reverse_ || meter % 2 == 1;
      break;
    case RecordWord::kNone:
      break;
  }
}

// A record without a flow takes what it said with it.
void StatsEngine::EndRecord() {
  if (record_has_flow_) {
    ++flow_.records;
    if (has_record_words_) {
      if (is_reverse_) {
        std::swap(record_.as_numbers[0], record_.as_numbers[1]);
        std::swap(record_.macs[0], record_.macs[1]);
      }
      MergeRecordWords(record_, &flow_);
    }
  }
  if (has_record_words_) record_ = {};
  has_record_words_ = false;
  record_has_flow_ = false;
  is_reverse_ = false;
}

void StatsEngine::Flush() {
  EndRecord();
  SendFlow();
  queue_.Flush();
}

void StatsEngine::UseStore(StatsStore& store) {
  Flush();
  store_ = &store;
  store.flows_are_shown = shows_flows_;
  vrf_ = app_ = user_ = {};  // another store may stand where an old one was
}

Status StatsEngine::UpdateCounter(const GUID& group, const char* key, int meter,
                                  std::uint64_t value) {
  const std::string_view text(key);
  if (UpdateRecent(group, text, Increment{Column(meter), value})) return kStatusOk;
  return UpdateOther(group, static_cast<int>(text.size()), key, meter, value);
}

Status StatsEngine::UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key,
                                        int meter, std::uint64_t value) {
  if (group.Data1 == kLeftOutGroup.Data1 && group == kLeftOutGroup) {
    HearWord(meter, value);
    return kStatusOk;
  }
  const std::string_view text = KeyText(keyLength, key);
  if (UpdateRecent(group, text, Increment{Column(meter), value})) return kStatusOk;
  return UpdateOther(group, keyLength, key, meter, value);
}

void StatsEngine::HearWord(int meter, std::uint64_t value) {
  if (Column(meter) >= kMeterWords) return;
  words_[Column(meter)] += value;
  has_words_ = true;
}

Status StatsEngine::UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2) {
  if (UpdateRecent(group, KeyText(keyLength, key), Increment{Column(meter1), value1},
                   Increment{Column(meter2), value2})) {
    return kStatusOk;
  }
  return UpdateOther(group, keyLength, key, meter1, value1, meter2, value2);
}

Status StatsEngine::UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2,
                                   int meter3, std::uint64_t value3) {
  if (UpdateRecent(group, KeyText(keyLength, key), Increment{Column(meter1), value1},
                   Increment{Column(meter2), value2}, Increment{Column(meter3), value3})) {
    return kStatusOk;
  }
  return UpdateOther(group, keyLength, key, meter1, value1, meter2, value2, meter3, value3);
}

// Of every host the plug-in says four.
Status StatsEngine::UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                                       const int* meters, const std::uint64_t* values) {
  if (count == 4 &&
      UpdateRecent(group, KeyText(keyLength, key), Increment{Column(meters[0]), values[0]},
                   Increment{Column(meters[1]), values[1]}, Increment{Column(meters[2]), values[2]},
                   Increment{Column(meters[3]), values[3]})) {
    return kStatusOk;
  }
  return UpdateMany(group, keyLength, key, count, meters, values);
}

Status StatsEngine::UpdateMany(const GUID& group, int keyLength, const char* key, int count,
                               const int* meters, const std::uint64_t* values) {
  const std::string_view text = KeyText(keyLength, key);
  if (count == 4) {
    Increment list[4];
    for (int i = 0; i < 4; ++i) list[i] = {Column(meters[i]), values[i]};
    UpdateAny(group, text, std::span<const Increment, 4>(list));
    return kStatusOk;
  }
  constexpr int kMost = UpdateQueue::kMostIncrements;
  for (int first = 0; first < count; first += kMost) {
    const int part = std::min(count - first, kMost);
    Increment pairs[kMost];
    for (int i = 0; i < part; ++i) pairs[i] = {Column(meters[first + i]), values[first + i]};
    UpdateAny(group, text, std::span<const Increment>(pairs, static_cast<std::size_t>(part)));
  }
  return kStatusOk;
}

// The hash is ignored: it belongs to another host's tables.
Status StatsEngine::UpdateCounterHashed2(const GUID& group, std::uint32_t /*keyHash*/,
                                         const char* key, int meter1, std::uint64_t value1,
                                         int meter2, std::uint64_t value2) {
  const std::string_view text(key);
  if (UpdateRecent(group, text, Increment{Column(meter1), value1},
                   Increment{Column(meter2), value2})) {
    return kStatusOk;
  }
  return UpdateOther(group, static_cast<int>(text.size()), key, meter1, value1, meter2, value2);
}

Status StatsEngine::SetKeyAttributes(const GUID& group, const char* key, const char* label,
                                     const char* description) {
  const HeapScope scope(nullptr);
  KeyNotes& notes = store_->NotesOf(store_->Group(group), key);
  notes.label = TextOrEmpty(label);
  notes.description = TextOrEmpty(description);
  notes.told = number_;
  return kStatusOk;
}

Status StatsEngine::SetKeyProperty(const GUID& group, const char* key, const char* name,
                                   const char* value) {
  RestIfAsked();
  store_->SetProperty(store_->Group(group), key, name, TextOrEmpty(value), number_);
  return kStatusOk;
}

// FlowOf gives what is being said about a flow; about another one than before, what was said so far
// goes to the store.
[[gnu::always_inline]] inline FlowTotals& StatsEngine::FlowOf(const char* key) {
  record_has_flow_ = true;
  if (has_flow_ && std::strcmp(key, flow_key_.c_str()) == 0) return flow_;
  return BeginFlow(key);
}

FlowTotals& StatsEngine::FlowOf(std::string_view key) {
  record_has_flow_ = true;
  if (has_flow_ && key == flow_key_) return flow_;
  return BeginFlow(key);
}

FlowTotals& StatsEngine::BeginFlow(std::string_view key) {
  SendFlow();
  flow_key_.resize(key.size());  // of one length, most of them
  key.copy(flow_key_.data(), key.size());
  flow_ = {};
  has_flow_ = true;
  return flow_;
}

void StatsEngine::SendFlow() {
  if (!has_flow_) return;
  has_flow_ = false;
  FlowTable& flows = store_->flows();
  if (flow_key_.size() >= UpdateQueue::kLongestKey) {
    store_->flows_are_shown = false;
    return flows.Merge(flow_key_, flow_);
  }
  char packed[UpdateQueue::kLongestKey];
  std::size_t size = PackSession(flow_key_, packed);
  if (IsText({packed, size})) size += flow_key_.copy(packed + size, flow_key_.size());
  if (shows_flows_ && (HasTexts(flow_) || !ShowInPlace(packed, &size))) {
    store_->flows_are_shown = false;
  }
  queue_.AddFlow(flows, {packed, size}, flow_);
}

// TouchFlow is FlowOf for an update of a flow's volume or meters: it makes the flow a flow, with
// the engine's time as long as the exporter has told none. The clock may have been set back.
FlowTotals& StatsEngine::TouchFlow(const char* key) {
  FlowTotals& flow = FlowOf(key);
  if (flow.has_times == 0) {
    flow.first_ms = flow.updates == 0 ? now_ms_ : std::min(flow.first_ms, now_ms_);
    flow.last_ms = flow.updates == 0 ? now_ms_ : std::max(flow.last_ms, now_ms_);
  }
  ++flow.updates;
  return flow;
}

Status StatsEngine::UpdateFlowCounter(const GUID& /*flowGroup*/, const char* flowKey, int meter,
                                      std::uint64_t value) {
  FlowTotals& flow = TouchFlow(flowKey);
  const auto column = static_cast<std::size_t>(meter);
  if (column < std::size(flow.meters)) {
    flow.meters[column] += value;
    is_reverse_ = is_reverse_ || column % 2 == 1;
  } else {
    ++store_->stray_updates;
  }
  return kStatusOk;
}

Status StatsEngine::UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey, int meter,
                                              std::uint64_t value, const char* text) {
  UpdateFlowCounter(flowGroup, flowKey, meter, value);
  FlowOf(flowKey).text = store_->Intern(TextOrEmpty(text));
  has_flow_texts_ = true;
  return kStatusOk;
}

// Records of one flow come in any order, so its times grow to span all that was told.
Status StatsEngine::SetFlowTimes(const GUID& /*flowGroup*/, const char* flowKey,
                                 const TimePair* start, const TimePair* end) {
  FlowTotals& flow = FlowOf(flowKey);
  const std::int64_t first = Milliseconds(*start);
  const std::int64_t last = Milliseconds(*end);
  flow.first_ms = flow.has_times == 0 ? first : std::min(flow.first_ms, first);
  flow.last_ms = flow.has_times == 0 ? last : std::max(flow.last_ms, last);
  flow.has_times = 1;
  return kStatusOk;
}

Status StatsEngine::SetFlowDuration(const GUID& /*flowGroup*/, const char* flowKey,
                                    std::uint32_t milliseconds) {
  FlowTotals& flow = FlowOf(flowKey);
  flow.duration_ms = std::max(flow.duration_ms, milliseconds);
  return kStatusOk;
}

Status StatsEngine::CloseFlow(const GUID& /*flowGroup*/, const char* flowKey) {
  ++FlowOf(flowKey).closes;
  return kStatusOk;
}

Status StatsEngine::GetCurrentTime(std::uint64_t* seconds) {
  *seconds = static_cast<std::uint64_t>(now_ / kMicrosPerSecond) + std::exchange(ahead_, 0);
  return kStatusOk;
}

Status StatsEngine::MarkRecord() {
  RestIfAsked();
  EndRecord();
  ++store_->records;
  return kStatusOk;
}

Status StatsEngine::UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                     std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                     std::uint64_t packetsOtherWay) {
  FlowTotals& flow = TouchFlow(flowKey);
  flow.bytes[0] += bytesOneWay;
  flow.bytes[1] += bytesOtherWay;
  flow.packets[0] += packetsOneWay;
  flow.packets[1] += packetsOtherWay;
  return kStatusOk;
}

Status StatsEngine::TagFlow(const GUID& /*flowGroup*/, const char* flowKey, const char* tag) {
  FlowOf(flowKey).tag = store_->Intern(TextOrEmpty(tag));
  has_flow_texts_ = true;
  return kStatusOk;
}

Status StatsEngine::PostChannelMessage(const GUID& channel, const IID& sender, std::uint32_t length,
                                       void* data) {
  RestIfAsked();
  const HeapScope scope(nullptr);
  channels_.Post(channel, sender, {static_cast<std::uint8_t*>(data), length});
  return kStatusOk;
}

}  // namespace flow::host
