// SPDX-License-Identifier: Apache-2.0
// Statistics engines to measure with.
#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <vector>

#include "flowhandlers/host_interfaces.h"

namespace flow::bench {

// Answers every operation at once. An engine to derive from: it is lent to the meter, which counts
// no references on it.
class NullEngine : public IOmbrelStatsEngine {
 public:
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  Status QueryInterface(const IID& iid, void** out) override;

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
};

// Does the least that any host must do: hashes the key's bytes, finds its item in an
// open-addressing table and adds.
class TallyEngine final : public NullEngine {
 public:
  TallyEngine() : slots_(1024) {}

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
  Status UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                           std::uint64_t value) override;
  Status SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                      const TimePair* end) override;
  Status CloseFlow(const GUID& flowGroup, const char* flowKey) override;
  Status MarkRecord() override;
  Status UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                          std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                          std::uint64_t packetsOtherWay) override;
  Status TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) override;

  [[nodiscard]] std::uint64_t Records() const { return records_; }
  [[nodiscard]] std::size_t Items() const { return items_.size(); }
  // Sum gives one meter of one key, 0 when there is none.
  [[nodiscard]] std::uint64_t Sum(const GUID& group, std::string_view key, int meter);
  // Digest is the same for two engines that hold the same sums.
  [[nodiscard]] std::uint64_t Digest() const;

 private:
  // Meters 0 to 11 of a counter group; of a flow the first four are counters, then follow its
  // volumes, and its times in milliseconds, and how often it was closed.
  static constexpr std::size_t kSums = 12;
  struct Item {
    std::array<std::uint64_t, kSums> sums;
    std::uint32_t group;
    std::uint32_t key_length;
    char key[120];
  };
  struct Slot {
    std::uint64_t hash;
    Item* item;
  };

  Item& ItemOf(const GUID& group, std::string_view key);
  Item& Insert(std::uint64_t hash, std::uint32_t group, std::string_view key);
  void Add(Item* item, int meter, std::uint64_t value) {
    item->sums[static_cast<std::size_t>(meter)] += value;
  }

  std::vector<Slot> slots_;  // a power of two in number, at most half of them in use
  std::deque<Item> items_;
  std::uint64_t records_ = 0;
};

}  // namespace flow::bench
