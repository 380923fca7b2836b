// SPDX-License-Identifier: Apache-2.0
// The base of a statistics engine: every operation is answered, and the many forms of an update
// arrive in a few functions.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/host_interfaces.h"
#include "flowhandlers/kit/host_object.h"

namespace flow::kit {

// An engine overrides the functions On... that it cares about. Texts are valid during the call and
// end with a NUL; what a function throws passes through the plug-in to the caller of Count.
class Engine : public HostObject<IOmbrelStatsEngine, IID_IOmbrelStatsEngine> {
 public:
  // SetTime says what time it is, in seconds since 1970, as of a capture; 0 is the system's.
  void SetTime(std::uint64_t seconds) { time_ = seconds; }

  // A value is to be added to a meter of a key, in any group but that of flows.
  virtual void OnCounter(const GUID& /*group*/, std::string_view /*key*/, int /*meter*/,
                         std::uint64_t /*value*/) {}

  // A key has a label and a description.
  virtual void OnLabel(const GUID& /*group*/, std::string_view /*key*/, const char* /*label*/,
                       const char* /*description*/) {}

  // A key has a property.
  virtual void OnProperty(const GUID& /*group*/, std::string_view /*key*/, const char* /*name*/,
                          const char* /*value*/) {}

  // Volumes are to be added to the two directions of a flow.
  virtual void OnFlowVolume(std::string_view /*key*/, std::uint64_t /*bytes_one_way*/,
                            std::uint64_t /*bytes_other_way*/, std::uint64_t /*packets_one_way*/,
                            std::uint64_t /*packets_other_way*/) {}

  // A value is to be added to a meter of a flow, in whichever way the meter says so; text, which
  // may be null, is kept with it.
  virtual void OnFlowCounter(std::string_view /*key*/, int /*meter*/, std::uint64_t /*value*/,
                             const char* /*text*/) {}
  virtual void OnFlowTimes(std::string_view /*key*/, const TimePair& /*start*/,
                           const TimePair& /*end*/) {}
  virtual void OnFlowDuration(std::string_view /*key*/, std::uint32_t /*milliseconds*/) {}
  virtual void OnFlowClosed(std::string_view /*key*/) {}
  virtual void OnFlowTag(std::string_view /*key*/, const char* /*tag*/) {}

  // A record or sample is about to be metered.
  virtual void OnRecord() {}

  // A meter has a message for the others that listen to the channel.
  virtual void OnMessage(const GUID& /*channel*/, void* /*data*/, std::uint32_t /*length*/) {}

  Status UpdateCounter(const GUID& group, const char* key, int meter,
                       std::uint64_t value) override {
    Add(group, key, meter, value);
    return kStatusOk;
  }
  Status UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key, int meter,
                             std::uint64_t value) override {
    Add(group, Key(key, keyLength), meter, value);
    return kStatusOk;
  }
  Status UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2) override {
    Add(group, Key(key, keyLength), meter1, value1);
    Add(group, Key(key, keyLength), meter2, value2);
    return kStatusOk;
  }
  Status UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2, int meter3,
                        std::uint64_t value3) override {
    Add(group, Key(key, keyLength), meter1, value1);
    Add(group, Key(key, keyLength), meter2, value2);
    Add(group, Key(key, keyLength), meter3, value3);
    return kStatusOk;
  }
  Status UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                            const int* meters, const std::uint64_t* values) override {
    for (int i = 0; i < count; ++i) Add(group, Key(key, keyLength), meters[i], values[i]);
    return kStatusOk;
  }
  Status UpdateCounterHashed2(const GUID& group, std::uint32_t /*keyHash*/, const char* key,
                              int meter1, std::uint64_t value1, int meter2,
                              std::uint64_t value2) override {
    Add(group, key, meter1, value1);
    Add(group, key, meter2, value2);
    return kStatusOk;
  }
  Status SetKeyAttributes(const GUID& group, const char* key, const char* label,
                          const char* description) override {
    OnLabel(group, key, label, description);
    return kStatusOk;
  }
  Status UpdateFlowCounter(const GUID& /*flowGroup*/, const char* flowKey, int meter,
                           std::uint64_t value) override {
    OnFlowCounter(flowKey, meter, value, nullptr);
    return kStatusOk;
  }
  Status SetFlowTimes(const GUID& /*flowGroup*/, const char* flowKey, const TimePair* start,
                      const TimePair* end) override {
    OnFlowTimes(flowKey, *start, *end);
    return kStatusOk;
  }
  Status SetFlowDuration(const GUID& /*flowGroup*/, const char* flowKey,
                         std::uint32_t milliseconds) override {
    OnFlowDuration(flowKey, milliseconds);
    return kStatusOk;
  }
  Status CloseFlow(const GUID& /*flowGroup*/, const char* flowKey) override {
    OnFlowClosed(flowKey);
    return kStatusOk;
  }
  Status GetCurrentTime(std::uint64_t* seconds) override {
    *seconds = time_ != 0 ? time_ : static_cast<std::uint64_t>(std::time(nullptr));
    return kStatusOk;
  }
  Status MarkRecord() override {
    OnRecord();
    return kStatusOk;
  }
  Status UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                          std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                          std::uint64_t packetsOtherWay) override {
    OnFlowVolume(flowKey, bytesOneWay, bytesOtherWay, packetsOneWay, packetsOtherWay);
    return kStatusOk;
  }
  Status TagFlow(const GUID& /*flowGroup*/, const char* flowKey, const char* tag) override {
    OnFlowTag(flowKey, tag);
    return kStatusOk;
  }
  Status PostChannelMessage(const GUID& channel, const IID& /*sender*/, std::uint32_t length,
                            void* data) override {
    OnMessage(channel, data, length);
    return kStatusOk;
  }
  Status SetKeyProperty(const GUID& group, const char* key, const char* name,
                        const char* value) override {
    OnProperty(group, key, name, value);
    return kStatusOk;
  }
  Status UpdateFlowCounterWithText(const GUID& /*flowGroup*/, const char* flowKey, int meter,
                                   std::uint64_t value, const char* text) override {
    OnFlowCounter(flowKey, meter, value, text);
    return kStatusOk;
  }

 private:
  void Add(const GUID& group, std::string_view key, int meter, std::uint64_t value) {
    if (group == COUNTERID_FLOWS) {
      OnFlowCounter(key, meter, value, nullptr);
    } else {
      OnCounter(group, key, meter, value);
    }
  }
  static std::string_view Key(const char* key, int length) {
    return {key, static_cast<std::size_t>(length)};
  }

  std::uint64_t time_ = 0;
};

}  // namespace flow::kit
