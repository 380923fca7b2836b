// SPDX-License-Identifier: Apache-2.0
// A log of host calls: the engine's and the site's answers about home addresses. Played back with
// ready-made keys, it is the floor under the cost of a workload.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/engines.h"

namespace flow::bench {

// An operation that cannot be played back ends the program: a workload sends nothing but data of
// known templates when its calls are logged.
class CallLog final : public NullEngine {
 public:
  void AddHomeQuestion(std::uint32_t address);
  void Play(IOmbrelStatsEngine* engine, IOmbrelContainer* site) const;
  [[nodiscard]] std::size_t Calls() const { return calls_.size(); }

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
  enum class Operation : std::uint8_t {
    kUpdateCounter,
    kUpdateCounterKeyLen,
    kUpdateCounter2,
    kUpdateCounter3,
    kUpdateCounterMulti,
    kUpdateCounterHashed2,
    kUpdateFlowCounter,
    kSetFlowTimes,
    kCloseFlow,
    kGetCurrentTime,
    kMarkRecord,
    kUpdateFlowVolume,
    kTagFlow,
    kIsHomeAddress,
  };

  // Kept small: a log has to leave room in the caches. Values and keys stand in tables of their
  // own, in the order of the calls.
  struct Call {
    Operation operation;
    std::uint8_t group;  // index
    std::uint8_t key_length;
    std::uint8_t values;  // their number
    std::uint32_t key;    // offset
    std::array<std::uint8_t, 4> meters;
  };
  struct Meter {
    int meter;
    std::uint64_t value;
  };

  Status Add(Operation operation, const GUID& group, std::string_view key,
             std::initializer_list<Meter> meters);
  Status AddKeyless(Operation operation);
  std::uint8_t IndexOf(const GUID& group);
  std::uint32_t OffsetOf(std::string_view key);

  std::vector<Call> calls_;
  std::vector<std::uint64_t> values_;
  std::string keys_;  // each with its NUL; a key that repeats the one before stands there once
  std::size_t last_key_ = 0;
  std::vector<GUID> groups_ = {GUID{}};
};

}  // namespace flow::bench
