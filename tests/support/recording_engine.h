// SPDX-License-Identifier: Apache-2.0
// The statistics engine of the recording host.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "flowhandlers/host_interfaces.h"
#include "tests/support/host_object.h"

namespace flow::test {

class RecordingEngine final : public HostObject<IOmbrelStatsEngine> {
 public:
  explicit RecordingEngine(HostTrace* trace) : HostObject(trace, "the statistics engine") {}

  std::uint64_t now = 1000;
  // Receives each posted message.
  bool any_value = false;  // rather than those of 32 bits
  std::function<void(const GUID& channel, std::span<const std::uint8_t> message)> on_message;

  Status UpdateCounter(const GUID& group, const char* key, int meter, std::uint64_t value) override;
  Status UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key, int meter,
                             std::uint64_t value) override;
  Status UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2) override;
  Status UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2, int meter3,
                        std::uint64_t value3) override;
  Status UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                            const int* meters, const std::uint64_t* values) override;
  Status UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash, const char* key, int meter1,
                              std::uint64_t value1, int meter2, std::uint64_t value2) override;
  Status SetKeyAttributes(const GUID& group, const char* key, const char* label,
                          const char* description) override;
  Status UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                           std::uint64_t value) override;
  Status SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                      const TimePair* end) override;
  Status SetFlowDuration(const GUID& flowGroup, const char* flowKey,
                         std::uint32_t milliseconds) override;
  Status CloseFlow(const GUID& flowGroup, const char* flowKey) override;
  Status GetCurrentTime(std::uint64_t* seconds) override;
  Status MarkRecord() override;
  Status UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                          std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                          std::uint64_t packetsOtherWay) override;
  Status TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) override;
  Status PostChannelMessage(const GUID& channel, const IID& sender, std::uint32_t length,
                            void* data) override;
  Status SetKeyProperty(const GUID& group, const char* key, const char* name,
                        const char* value) override;
  Status UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey, int meter,
                                   std::uint64_t value, const char* text) override;

 private:
  // Keyed checks a key, meters and values against their group, writes the call down and answers it.
  // A key_length of kNoLength is one that the operation does not carry.
  template <class... Fields>
  Status Keyed(const char* operation, const GUID& group, int key_length, const char* key,
               std::initializer_list<int> meters, const Fields&... fields);

  // CheckKey gives the key, or as much of it as can be shown.
  std::string_view CheckKey(const char* operation, const GUID& group, int key_length,
                            const char* key);
  void CheckMeter(const char* operation, const GUID& group, int meter);
  void CheckValue(const char* operation, const GUID& group, std::uint64_t value);
  void Fault(const char* operation, const GUID& group, const std::string& text);
  Status Answer(const char* operation) const;
};

}  // namespace flow::test
