// SPDX-License-Identifier: Apache-2.0
// Tells programs behind the collector what was counted, as messages, in a thread of its own.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/base/writer.h"
#include "host/period/keeper.h"
#include "host/scale/flow_messages.h"
#include "host/scale/message.h"
#include "host/scale/minute_messages.h"
#include "host/store/minute_taker.h"

namespace flow::host {

class Console;

class MessageKeeper final : public Keeper {
 public:
  // With waits whoever counts waits where messages cannot go on; else they are let go. Groups,
  // stand-ins and console outlive it.
  MessageKeeper(std::string name, const Sending& sending, std::unique_ptr<MessageSink> sink,
                bool waits, std::span<const GroupInfo> groups, const StandIns& stand_ins,
                Console& console);

  void TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) override;
  void Take(const Tick& tick, const std::vector<Harvest>& harvests) override;
  void End() override;
  [[nodiscard]] bool FinishBy(Writer::Clock::time_point deadline) override;
  [[nodiscard]] bool Succeeded() const override { return !failed_; }
  [[nodiscard]] const char* name() const override { return name_.c_str(); }

 private:
  void Post(const Writer::Job& job);
  void WaitAWhile();
  // In the writer's thread.
  void PutFlows(std::int64_t bucket, const FlowBatch& flows);
  void PutMinute(CountedMinute* ended, NotKept not_kept);
  void TellLost();

  std::string name_;
  std::unique_ptr<MessageSink> sink_;
  bool waits_;
  bool wants_minutes_;
  Console& console_;
  MinuteTaker minutes_;
  NotKept not_kept_;
  bool told_full_ = false;

  // Of the writer's thread.
  FlowMessages flow_messages_;
  MinuteMessages minute_messages_;
  std::int64_t open_minute_ = 0;  // that has flows, and has not ended; 0 for none
  std::uint64_t flows_ = 0;       // of it
  NotKept lost_;
  bool told_lost_ = false;

  std::atomic<bool> failed_ = false;
  std::atomic<std::uint64_t> flows_waiting_ = 0;
  Writer writer_;  // the last to be made, the first to go
};

}  // namespace flow::host
