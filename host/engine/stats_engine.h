// SPDX-License-Identifier: Apache-2.0
// The statistics engine: the host's side of every counter and flow update.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "host/base/timestamp.h"
#include "host/border/host_object.h"
#include "host/engine/channel_sink.h"
#include "host/engine/meter_words.h"
#include "host/engine/stats_store.h"
#include "host/engine/update_queue.h"

namespace flow::host {

class StatsEngine final : public HostObject<IOmbrelStatsEngine, IID_IOmbrelStatsEngine> {
 public:
  // The store and the sink outlive the engine.
  StatsEngine(StatsStore& store, ChannelSink& channels);

  // UseStore flushes and counts into another store from now on.
  void UseStore(StatsStore& store);

  // Flush brings everything into the store that was said so far; until then some of it may wait.
  void Flush();

  // SetTime is the clock: the time of the datagram that is about to be counted.
  void SetTime(Timestamp now) {
    now_ = now;
    now_ms_ = now / 1000;
  }

  // SetNumber is the datagram's place in the order of arrival: of what is told of a key the last
  // word counts, after a clock was set back too.
  void SetNumber(std::uint64_t number) { number_ = number; }

  // TakeWords hands out what the meter has told of records that it did not meter, since last asked.
  MeterWords TakeWords() {
    if (!has_words_) return {};
    has_words_ = false;
    return std::exchange(words_, {});
  }

  // Whether flows were given tags or texts, of which the last counts.
  [[nodiscard]] bool HasFlowTexts() const { return has_flow_texts_; }

  // ShowFlows has flows counted as reports show them, where no order of parts is to be kept: fewer,
  // and nothing is left to bring together. Before the first datagram.
  void ShowFlows() {
    shows_flows_ = true;
    store_->flows_are_shown = true;
  }

  // SetAhead makes the answer to the next question for the time so late that what a component does
  // at least every hour, or as often as that, is due.
  void SetAhead(std::uint32_t seconds) { ahead_ = std::max(seconds, 3600U) + 1; }

  // AskRest has the thread that counts call rest at the next record, property or message, even in
  // the middle of a datagram; what was said so far is whole. Any thread may ask, once.
  void AskRest(std::function<void()> rest) {
    rest_ = std::move(rest);
    is_asked_to_rest_.store(true, std::memory_order_release);
  }

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
  // The number of a text that comes again in record after record.
  class RecentText {
   public:
    std::uint32_t NumberOf(std::string_view text, StatsStore* store) {
      if (store != store_ || text != text_) {
        number_ = store->Intern(text);
        text_ = text;
        store_ = store;
      }
      return number_;
    }

   private:
    const StatsStore* store_ = nullptr;
    std::string text_;
    std::uint32_t number_ = 0;
  };

  // UpdateRecent adds some values to a key where its row is a recent one; a column is a meter's
  // index. UpdateOther does it where it is none, and UpdateAny any number up to
  // UpdateQueue::kMostIncrements.
  template <class... Increments>
  bool UpdateRecent(const GUID& group, std::string_view key, const Increments&... increments);
  template <class... MetersAndValues>
  [[gnu::noinline]] Status UpdateOther(const GUID& group, int keyLength, const char* key,
                                       MetersAndValues... numbers);
  [[gnu::noinline]] Status UpdateMany(const GUID& group, int keyLength, const char* key, int count,
                                      const int* meters, const std::uint64_t* values);
  template <std::size_t kExtent>
  void UpdateAny(const GUID& group, std::string_view key,
                 std::span<const Increment, kExtent> increments);
  void HearWord(int meter, std::uint64_t value);
  // Those of meters that the group has.
  template <std::size_t kExtent>
  void UpdateKnown(GroupCounters& counters, std::string_view key,
                   std::span<const Increment, kExtent> increments);
  void UpdatePartly(GroupCounters& counters, std::string_view key,
                    std::span<const Increment> increments);
  // HearRecordWord keeps what a counter update says of the record; EndRecord gives it to the flow.
  void HearRecordWord(const GroupCounters& counters, std::string_view key,
                      std::span<const Increment> increments);
  void EndRecord();
  FlowTotals& FlowOf(const char* key);
  FlowTotals& FlowOf(std::string_view key);
  [[gnu::noinline]] FlowTotals& BeginFlow(std::string_view key);
  FlowTotals& TouchFlow(const char* key);
  void SendFlow();
  void RestIfAsked() {
    if (is_asked_to_rest_.load(std::memory_order_acquire)) rest_();
  }

  StatsStore* store_;
  ChannelSink& channels_;
  Timestamp now_ = 0;
  std::int64_t now_ms_ = 0;
  std::uint64_t number_ = 0;
  MeterWords words_{};
  bool has_words_ = false;
  std::uint64_t ahead_ = 0;
  UpdateQueue queue_;
  // What the last calls said about one flow: all calls about a record name the same one, so that it
  // is looked up once.
  std::string flow_key_;
  FlowTotals flow_{};
  bool has_flow_ = false;
  bool shows_flows_ = false;
  // What was said of the record at hand: of its source and of its destination, or of all of it.
  FlowTotals record_{};
  bool has_record_words_ = false;
  bool record_has_flow_ = false;
  bool is_reverse_ = false;  // its source is side B of its flow
  bool has_flow_texts_ = false;
  RecentText vrf_;
  RecentText app_;
  RecentText user_;
  std::atomic<bool> is_asked_to_rest_ = false;
  std::function<void()> rest_;
};

}  // namespace flow::host
