// SPDX-License-Identifier: Apache-2.0
#include "bench/call_log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "flowhandlers/counter_groups.h"

namespace flow::bench {
namespace {

[[noreturn]] Status NotInALog(const char* operation) {
  std::fprintf(stderr, "%s cannot be played back\n", operation);
  std::abort();
}

}  // namespace

std::uint8_t CallLog::IndexOf(const GUID& group) {
  const auto found = std::ranges::find(groups_, group);
  const auto index = static_cast<std::uint8_t>(found - groups_.begin());
  if (found == groups_.end()) groups_.push_back(group);
  return index;
}

std::uint32_t CallLog::OffsetOf(std::string_view key) {
  if (std::string_view(keys_.c_str() + last_key_) != key) {
    last_key_ = keys_.size();
    keys_.append(key).push_back('\0');
  }
  return static_cast<std::uint32_t>(last_key_);
}

Status CallLog::Add(Operation operation, const GUID& group, std::string_view key,
                    std::initializer_list<Meter> meters) {
  Call call{.operation = operation,
            .group = IndexOf(group),
            .key_length = static_cast<std::uint8_t>(key.size()),
            .values = static_cast<std::uint8_t>(meters.size()),
            .key = OffsetOf(key),
            .meters = {}};
  std::size_t i = 0;
  for (const Meter& meter : meters) {
    call.meters.at(i++) = static_cast<std::uint8_t>(meter.meter);
    values_.push_back(meter.value);
  }
  calls_.push_back(call);
  return kStatusOk;
}

Status CallLog::AddKeyless(Operation operation) {
  calls_.push_back(
      {.operation = operation, .group = 0, .key_length = 0, .values = 0, .key = 0, .meters = {}});
  return kStatusOk;
}

void CallLog::AddHomeQuestion(std::uint32_t address) {
  calls_.push_back({.operation = Operation::kIsHomeAddress,
                    .group = 0,
                    .key_length = 0,
                    .values = 0,
                    .key = address,
                    .meters = {}});
}

Status CallLog::UpdateCounter(const GUID& group, const char* key, int meter, std::uint64_t value) {
  return Add(Operation::kUpdateCounter, group, key, {{meter, value}});
}

Status CallLog::UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key, int meter,
                                    std::uint64_t value) {
  return Add(Operation::kUpdateCounterKeyLen, group, {key, static_cast<std::size_t>(keyLength)},
             {{meter, value}});
}

Status CallLog::UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                               std::uint64_t value1, int meter2, std::uint64_t value2) {
  return Add(Operation::kUpdateCounter2, group, {key, static_cast<std::size_t>(keyLength)},
             {{meter1, value1}, {meter2, value2}});
}

Status CallLog::UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                               std::uint64_t value1, int meter2, std::uint64_t value2, int meter3,
                               std::uint64_t value3) {
  return Add(Operation::kUpdateCounter3, group, {key, static_cast<std::size_t>(keyLength)},
             {{meter1, value1}, {meter2, value2}, {meter3, value3}});
}

Status CallLog::UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                                   const int* meters, const std::uint64_t* values) {
  if (count != 4) NotInALog("UpdateCounterMulti of other than four meters");
  return Add(Operation::kUpdateCounterMulti, group, {key, static_cast<std::size_t>(keyLength)},
             {{meters[0], values[0]},
              {meters[1], values[1]},
              {meters[2], values[2]},
              {meters[3], values[3]}});
}

Status CallLog::UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash, const char* key,
                                     int meter1, std::uint64_t value1, int meter2,
                                     std::uint64_t value2) {
  return Add(Operation::kUpdateCounterHashed2, group, key,
             {{meter1, value1}, {meter2, value2}, {0, keyHash}});
}

Status CallLog::UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                                  std::uint64_t value) {
  return Add(Operation::kUpdateFlowCounter, flowGroup, flowKey, {{meter, value}});
}

Status CallLog::SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                             const TimePair* end) {
  const auto number = [](std::int64_t part) { return static_cast<std::uint64_t>(part); };
  return Add(Operation::kSetFlowTimes, flowGroup, flowKey,
             {{0, number(start->seconds)},
              {0, number(start->milliseconds)},
              {0, number(end->seconds)},
              {0, number(end->milliseconds)}});
}

Status CallLog::CloseFlow(const GUID& flowGroup, const char* flowKey) {
  return Add(Operation::kCloseFlow, flowGroup, flowKey, {});
}

Status CallLog::GetCurrentTime(std::uint64_t* seconds) {
  NullEngine::GetCurrentTime(seconds);
  return AddKeyless(Operation::kGetCurrentTime);
}

Status CallLog::MarkRecord() { return AddKeyless(Operation::kMarkRecord); }

Status CallLog::UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                 std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                 std::uint64_t packetsOtherWay) {
  return Add(Operation::kUpdateFlowVolume, COUNTERID_FLOWS, flowKey,
             {{0, bytesOneWay}, {0, bytesOtherWay}, {0, packetsOneWay}, {0, packetsOtherWay}});
}

// The tags are few and constant: the flow's key stands for its text as well.
Status CallLog::TagFlow(const GUID& flowGroup, const char* flowKey, const char* /*tag*/) {
  return Add(Operation::kTagFlow, flowGroup, flowKey, {});
}

Status CallLog::SetKeyAttributes(const GUID&, const char*, const char*, const char*) {
  return NotInALog("SetKeyAttributes");
}

Status CallLog::SetFlowDuration(const GUID&, const char*, std::uint32_t) {
  return NotInALog("SetFlowDuration");
}

Status CallLog::PostChannelMessage(const GUID&, const IID&, std::uint32_t, void*) {
  return NotInALog("PostChannelMessage");
}

Status CallLog::SetKeyProperty(const GUID&, const char*, const char*, const char*) {
  return NotInALog("SetKeyProperty");
}

Status CallLog::UpdateFlowCounterWithText(const GUID&, const char*, int, std::uint64_t,
                                          const char*) {
  return NotInALog("UpdateFlowCounterWithText");
}

void CallLog::Play(IOmbrelStatsEngine* engine, IOmbrelContainer* site) const {
  const std::uint64_t* v = values_.data();
  for (const Call& call : calls_) {
    const GUID& group = groups_[call.group];
    const char* const key = keys_.data() + call.key;
    const int length = call.key_length;
    const auto& m = call.meters;
    switch (call.operation) {
      case Operation::kUpdateCounter:
        engine->UpdateCounter(group, key, m[0], v[0]);
        break;
      case Operation::kUpdateCounterKeyLen:
        engine->UpdateCounterKeyLen(group, length, key, m[0], v[0]);
        break;
      case Operation::kUpdateCounter2:
        engine->UpdateCounter2(group, length, key, m[0], v[0], m[1], v[1]);
        break;
      case Operation::kUpdateCounter3:
        engine->UpdateCounter3(group, length, key, m[0], v[0], m[1], v[1], m[2], v[2]);
        break;
      case Operation::kUpdateCounterMulti: {
        const int meters[] = {m[0], m[1], m[2], m[3]};
        engine->UpdateCounterMulti(group, length, key, 4, meters, v);
        break;
      }
      case Operation::kUpdateCounterHashed2:
        engine->UpdateCounterHashed2(group, static_cast<std::uint32_t>(v[2]), key, m[0], v[0], m[1],
                                     v[1]);
        break;
      case Operation::kUpdateFlowCounter:
        engine->UpdateFlowCounter(group, key, m[0], v[0]);
        break;
      case Operation::kSetFlowTimes: {
        const auto part = [v](int i) { return static_cast<std::int64_t>(v[i]); };
        const TimePair start = {part(0), part(1)};
        const TimePair end = {part(2), part(3)};
        engine->SetFlowTimes(group, key, &start, &end);
        break;
      }
      case Operation::kCloseFlow:
        engine->CloseFlow(group, key);
        break;
      case Operation::kGetCurrentTime: {
        std::uint64_t now = 0;
        engine->GetCurrentTime(&now);
        break;
      }
      case Operation::kMarkRecord:
        engine->MarkRecord();
        break;
      case Operation::kUpdateFlowVolume:
        engine->UpdateFlowVolume(key, v[0], v[1], v[2], v[3]);
        break;
      case Operation::kTagFlow:
        engine->TagFlow(group, key, key);
        break;
      case Operation::kIsHomeAddress: {
        bool is_home = false;
        site->IsHomeAddress(call.key, &is_home);
        break;
      }
    }
    v += call.values;
  }
}

}  // namespace flow::bench
