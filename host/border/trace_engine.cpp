// SPDX-License-Identifier: Apache-2.0
#include "host/border/trace_engine.h"

#include <algorithm>
#include <string>

namespace flow::host {
namespace {

std::string QuotedKey(int length, const char* key) {
  return Quoted(std::string_view(key, static_cast<std::size_t>(std::max(length, 0))));
}

std::string Text(const TimePair& time) {
  return fmt::format("{}.{:03}", time.seconds, time.milliseconds);
}

}  // namespace

Status TraceEngine::UpdateCounter(const GUID& group, const char* key, int meter,
                                  std::uint64_t value) {
  trace_.Call("UpdateCounter {} {} {}+={}", trace_.Name(group), Quoted(key), meter, value);
  return engine_.UpdateCounter(group, key, meter, value);
}

Status TraceEngine::UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key,
                                        int meter, std::uint64_t value) {
  trace_.Call("UpdateCounterKeyLen {} {} {}+={}", trace_.Name(group), QuotedKey(keyLength, key),
              meter, value);
  return engine_.UpdateCounterKeyLen(group, keyLength, key, meter, value);
}

Status TraceEngine::UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2) {
  trace_.Call("UpdateCounter2 {} {} {}+={} {}+={}", trace_.Name(group), QuotedKey(keyLength, key),
              meter1, value1, meter2, value2);
  return engine_.UpdateCounter2(group, keyLength, key, meter1, value1, meter2, value2);
}

Status TraceEngine::UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                                   std::uint64_t value1, int meter2, std::uint64_t value2,
                                   int meter3, std::uint64_t value3) {
  trace_.Call("UpdateCounter3 {} {} {}+={} {}+={} {}+={}", trace_.Name(group),
              QuotedKey(keyLength, key), meter1, value1, meter2, value2, meter3, value3);
  return engine_.UpdateCounter3(group, keyLength, key, meter1, value1, meter2, value2, meter3,
                                value3);
}

Status TraceEngine::UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                                       const int* meters, const std::uint64_t* values) {
  std::string updates;
  for (int i = 0; i < count; ++i) updates += fmt::format(" {}+={}", meters[i], values[i]);
  trace_.Call("UpdateCounterMulti {} {}{}", trace_.Name(group), QuotedKey(keyLength, key), updates);
  return engine_.UpdateCounterMulti(group, keyLength, key, count, meters, values);
}

Status TraceEngine::UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash, const char* key,
                                         int meter1, std::uint64_t value1, int meter2,
                                         std::uint64_t value2) {
  trace_.Call("UpdateCounterHashed2 {} {:08X} {} {}+={} {}+={}", trace_.Name(group), keyHash,
              Quoted(key), meter1, value1, meter2, value2);
  return engine_.UpdateCounterHashed2(group, keyHash, key, meter1, value1, meter2, value2);
}

Status TraceEngine::SetKeyAttributes(const GUID& group, const char* key, const char* label,
                                     const char* description) {
  trace_.Call("SetKeyAttributes {} {} {} {}", trace_.Name(group), Quoted(key), Quoted(label),
              Quoted(description));
  return engine_.SetKeyAttributes(group, key, label, description);
}

Status TraceEngine::UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                                      std::uint64_t value) {
  trace_.Call("UpdateFlowCounter {} {} {}+={}", trace_.Name(flowGroup), Quoted(flowKey), meter,
              value);
  return engine_.UpdateFlowCounter(flowGroup, flowKey, meter, value);
}

Status TraceEngine::SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                                 const TimePair* end) {
  trace_.Call("SetFlowTimes {} {} {} {}", trace_.Name(flowGroup), Quoted(flowKey), Text(*start),
              Text(*end));
  return engine_.SetFlowTimes(flowGroup, flowKey, start, end);
}

Status TraceEngine::SetFlowDuration(const GUID& flowGroup, const char* flowKey,
                                    std::uint32_t milliseconds) {
  trace_.Call("SetFlowDuration {} {} {}", trace_.Name(flowGroup), Quoted(flowKey), milliseconds);
  return engine_.SetFlowDuration(flowGroup, flowKey, milliseconds);
}

Status TraceEngine::CloseFlow(const GUID& flowGroup, const char* flowKey) {
  trace_.Call("CloseFlow {} {}", trace_.Name(flowGroup), Quoted(flowKey));
  return engine_.CloseFlow(flowGroup, flowKey);
}

Status TraceEngine::GetCurrentTime(std::uint64_t* seconds) {
  const Status status = engine_.GetCurrentTime(seconds);
  trace_.Call("GetCurrentTime {}", *seconds);
  return status;
}

Status TraceEngine::MarkRecord() {
  trace_.Call("MarkRecord");
  return engine_.MarkRecord();
}

Status TraceEngine::UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                                     std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                                     std::uint64_t packetsOtherWay) {
  trace_.Call("UpdateFlowVolume {} bytes {} {} packets {} {}", Quoted(flowKey), bytesOneWay,
              bytesOtherWay, packetsOneWay, packetsOtherWay);
  return engine_.UpdateFlowVolume(flowKey, bytesOneWay, bytesOtherWay, packetsOneWay,
                                  packetsOtherWay);
}

Status TraceEngine::TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) {
  trace_.Call("TagFlow {} {} {}", trace_.Name(flowGroup), Quoted(flowKey), Quoted(tag));
  return engine_.TagFlow(flowGroup, flowKey, tag);
}

Status TraceEngine::PostChannelMessage(const GUID& channel, const IID& sender, std::uint32_t length,
                                       void* data) {
  trace_.Call("PostChannelMessage {} from {} {} bytes", trace_.Name(channel), trace_.Name(sender),
              length);
  return engine_.PostChannelMessage(channel, sender, length, data);
}

Status TraceEngine::SetKeyProperty(const GUID& group, const char* key, const char* name,
                                   const char* value) {
  trace_.Call("SetKeyProperty {} {} {} {}", trace_.Name(group), Quoted(key), Quoted(name),
              Quoted(value));
  return engine_.SetKeyProperty(group, key, name, value);
}

Status TraceEngine::UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey, int meter,
                                              std::uint64_t value, const char* text) {
  trace_.Call("UpdateFlowCounterWithText {} {} {}+={} {}", trace_.Name(flowGroup), Quoted(flowKey),
              meter, value, Quoted(text));
  return engine_.UpdateFlowCounterWithText(flowGroup, flowKey, meter, value, text);
}

}  // namespace flow::host
