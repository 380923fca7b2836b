// SPDX-License-Identifier: Apache-2.0
#include "tests/support/recording_engine.h"

#include <cstring>
#include <string>
#include <type_traits>

#include "tests/support/counter_groups.h"

namespace flow::test {
namespace {

constexpr int kNoLength = -1;
constexpr std::size_t kLongestKey = 255;  // a key lives in a buffer of 256 bytes
// The counts that records and samples carry have 32 bits, and stay so when they are scaled.
constexpr std::uint64_t kLargestValue = 0xFFFFFFFF;
constexpr GUID kFlows = MakeGuid("99A78737-4B41-4387-8F31-8077DB917336");

// The host's hash of each key that may come with one.
struct HashedKey {
  std::string_view key;
  std::uint32_t hash;
};
constexpr HashedKey kHashedKeys[] = {
    {"TOTALBW", 0xCE94BC07},       {"DIR_WITHINHOME", 0x8CB1E50E}, {"DIR_INTOHOME", 0xF69E2D0C},
    {"DIR_OUTOFHOME", 0x33708C0D}, {"DIR_TRANSIT", 0xC7EB260B},
};

bool HashIsRight(std::string_view key, std::uint32_t hash) {
  for (const HashedKey& hashed : kHashedKeys) {
    if (hashed.key == key) return hashed.hash == hash;
  }
  return false;
}

}  // namespace

std::string_view RecordingEngine::CheckKey(const char* operation, const GUID& group, int key_length,
                                           const char* key) {
  if (key == nullptr) {
    Fault(operation, group, "null key");
    return {};
  }
  const std::string_view text(key, strnlen(key, kLongestKey + 1));
  const CounterGroup* const known = FindCounterGroup(group);
  if (text.size() > kLongestKey) {
    Fault(operation, group, "a key without its NUL");
  } else if (key_length != kNoLength && static_cast<std::size_t>(key_length) != text.size()) {
    Fault(operation, group, "key length " + std::to_string(key_length) + " for " + Escaped(text));
  } else if (known == nullptr) {
    Fault(operation, group, "unknown group");
  } else if (!KeyFits(*known, text)) {
    Fault(operation, group, "no key of this group: " + Escaped(text));
  }
  return text;
}

void RecordingEngine::CheckMeter(const char* operation, const GUID& group, int meter) {
  const CounterGroup* const known = FindCounterGroup(group);
  if (known == nullptr) return;
  if (meter < 0 || meter > 31 || (known->meters >> meter & 1) == 0) {
    Fault(operation, group, "no meter " + std::to_string(meter));
  }
}

void RecordingEngine::CheckValue(const char* operation, const GUID& group, std::uint64_t value) {
  if (value > kLargestValue && !any_value)
    Fault(operation, group, "the value " + std::to_string(value));
}

void RecordingEngine::Fault(const char* operation, const GUID& group, const std::string& text) {
  trace().Fault(std::string(operation) + " " + GuidName(group) + ": " + text);
}

Status RecordingEngine::Answer(const char* operation) const {
  Status status = kStatusOk;
  trace().Failure(operation, &status);
  return status;
}

template <class... Fields>
Status RecordingEngine::Keyed(const char* operation, const GUID& group, int key_length,
                              const char* key, std::initializer_list<int> meters,
                              const Fields&... fields) {
  const Key checked{CheckKey(operation, group, key_length, key)};
  for (const int meter : meters) CheckMeter(operation, group, meter);
  [[maybe_unused]] const auto check = [&]<class Field>(const Field& field) {
    if constexpr (std::is_same_v<Field, std::uint64_t>) CheckValue(operation, group, field);
  };
  (check(fields), ...);
  if (key_length == kNoLength) {
    trace().Call(operation, group, checked, fields...);
  } else {
    trace().Call(operation, group, key_length, checked, fields...);
  }
  return Answer(operation);
}

Status RecordingEngine::UpdateCounter(const GUID& group, const char* key, int meter,
                                      std::uint64_t value) {
  return Keyed("UpdateCounter", group, kNoLength, key, {meter}, meter, value);
}

Status RecordingEngine::UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key,
                                            int meter, std::uint64_t value) {
  return Keyed("UpdateCounterKeyLen", group, keyLength, key, {meter}, meter, value);
}

Status RecordingEngine::UpdateCounter2(const GUID& group, int keyLength, const char* key,
                                       int meter1, std::uint64_t value1, int meter2,
                                       std::uint64_t value2) {
  return Keyed("UpdateCounter2", group, keyLength, key, {meter1, meter2}, meter1, value1, meter2,
               value2);
}

Status RecordingEngine::UpdateCounter3(const GUID& group, int keyLength, const char* key,
                                       int meter1, std::uint64_t value1, int meter2,
                                       std::uint64_t value2, int meter3, std::uint64_t value3) {
  return Keyed("UpdateCounter3", group, keyLength, key, {meter1, meter2, meter3}, meter1, value1,
               meter2, value2, meter3, value3);
}

Status RecordingEngine::UpdateCounterMulti(const GUID& group, int keyLength, const char* key,
                                           int count, const int* meters,
                                           const std::uint64_t* values) {
  std::string pairs;
  for (int i = 0; i < count; ++i) {
    CheckMeter("UpdateCounterMulti", group, meters[i]);
    CheckValue("UpdateCounterMulti", group, values[i]);
    pairs += (i == 0 ? "" : " ") + std::to_string(meters[i]) + " " + std::to_string(values[i]);
  }
  return Keyed("UpdateCounterMulti", group, keyLength, key, {}, count, pairs);
}

Status RecordingEngine::UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash,
                                             const char* key, int meter1, std::uint64_t value1,
                                             int meter2, std::uint64_t value2) {
  const Key checked{CheckKey("UpdateCounterHashed2", group, kNoLength, key)};
  CheckMeter("UpdateCounterHashed2", group, meter1);
  CheckMeter("UpdateCounterHashed2", group, meter2);
  CheckValue("UpdateCounterHashed2", group, value1);
  CheckValue("UpdateCounterHashed2", group, value2);
  if (!HashIsRight(checked.key, keyHash)) {
    Fault("UpdateCounterHashed2", group, "wrong hash for " + Escaped(checked.key));
  }
  trace().Call("UpdateCounterHashed2", group, Hash{keyHash}, checked, meter1, value1, meter2,
               value2);
  return Answer("UpdateCounterHashed2");
}

Status RecordingEngine::SetKeyAttributes(const GUID& group, const char* key, const char* label,
                                         const char* description) {
  return Keyed("SetKeyAttributes", group, kNoLength, key, {}, Text{label}, Text{description});
}

Status RecordingEngine::UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                                          std::uint64_t value) {
  return Keyed("UpdateFlowCounter", flowGroup, kNoLength, flowKey, {meter}, meter, value);
}

Status RecordingEngine::SetFlowTimes(const GUID& flowGroup, const char* flowKey,
                                     const TimePair* start, const TimePair* end) {
  for (const TimePair* const time : {start, end}) {
    if (time->milliseconds < 0 || time->milliseconds > 999) {
      Fault("SetFlowTimes", flowGroup, std::to_string(time->milliseconds) + " milliseconds");
    }
  }
  return Keyed("SetFlowTimes", flowGroup, kNoLength, flowKey, {}, start->seconds,
               start->milliseconds, end->seconds, end->milliseconds);
}

Status RecordingEngine::SetFlowDuration(const GUID& flowGroup, const char* flowKey,
                                        std::uint32_t milliseconds) {
  return Keyed("SetFlowDuration", flowGroup, kNoLength, flowKey, {}, milliseconds);
}

Status RecordingEngine::CloseFlow(const GUID& flowGroup, const char* flowKey) {
  return Keyed("CloseFlow", flowGroup, kNoLength, flowKey, {});
}

Status RecordingEngine::GetCurrentTime(std::uint64_t* seconds) {
  if (*seconds != 0) trace().Fault("GetCurrentTime: the variable has not been zeroed");
  trace().Query("GetCurrentTime", now);
  Status status = kStatusOk;
  if (!trace().Failure("GetCurrentTime", &status)) *seconds = now;
  return status;
}

Status RecordingEngine::MarkRecord() {
  trace().Call("MarkRecord");
  return Answer("MarkRecord");
}

Status RecordingEngine::UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                         std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                         std::uint64_t packetsOtherWay) {
  for (const std::uint64_t value : {bytesOneWay, bytesOtherWay, packetsOneWay, packetsOtherWay}) {
    CheckValue("UpdateFlowVolume", kFlows, value);
  }
  trace().Call("UpdateFlowVolume", Key{CheckKey("UpdateFlowVolume", kFlows, kNoLength, flowKey)},
               bytesOneWay, bytesOtherWay, packetsOneWay, packetsOtherWay);
  return Answer("UpdateFlowVolume");
}

Status RecordingEngine::TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) {
  return Keyed("TagFlow", flowGroup, kNoLength, flowKey, {}, Text{tag});
}

Status RecordingEngine::PostChannelMessage(const GUID& channel, const IID& sender,
                                           std::uint32_t length, void* data) {
  const std::span<const std::uint8_t> message(static_cast<const std::uint8_t*>(data), length);
  trace().Call("PostChannelMessage", channel, sender, length, Hex{message});
  Status status = kStatusOk;
  if (!trace().Failure("PostChannelMessage", &status) && on_message) on_message(channel, message);
  return status;
}

Status RecordingEngine::SetKeyProperty(const GUID& group, const char* key, const char* name,
                                       const char* value) {
  return Keyed("SetKeyProperty", group, kNoLength, key, {}, Text{name}, Text{value});
}

Status RecordingEngine::UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey,
                                                  int meter, std::uint64_t value,
                                                  const char* text) {
  return Keyed("UpdateFlowCounterWithText", flowGroup, kNoLength, flowKey, {meter}, meter, value,
               Text{text});
}

}  // namespace flow::test
