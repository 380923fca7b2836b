// SPDX-License-Identifier: Apache-2.0
#include "host/scale/message_keeper.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "host/base/console.h"
#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostJobs = 256;

}  // namespace

MessageKeeper::MessageKeeper(std::string name, const Sending& sending,
                             std::unique_ptr<MessageSink> sink, bool waits,
                             std::span<const GroupInfo> groups, const StandIns& stand_ins,
                             Console& console)
    : name_(std::move(name)),
      sink_(std::move(sink)),
      waits_(waits),
      wants_minutes_(sink_->Wants(Topic::kCounters) || sink_->Wants(Topic::kHealth)),
      console_(console),
      minutes_(groups, stand_ins),
      flow_messages_(sending, stand_ins, *sink_),
      minute_messages_(sending, *sink_),
      writer_(name_, kMostJobs) {}

void MessageKeeper::Post(const Writer::Job& job) {
  while (!writer_.Post(job)) {
    if (!waits_) {
      failed_ = true;
      return console_.Error(fmt::format("{} hangs; what is counted is not told there", name_));
    }
    WaitAWhile();
  }
}

void MessageKeeper::WaitAWhile() {
  constexpr std::chrono::milliseconds kWhile(50);
  static_cast<void>(writer_.FinishBy(Writer::Clock::now() + kWhile));
}

void MessageKeeper::TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) {
  const std::uint64_t count = flows->table.size();
  not_kept_.Add(flows->let_go);
  if (count == 0) return;
  const auto is_full = [&] {
    return flows_waiting_ > 0 && flows_waiting_ + count > Shares().flows_waiting;
  };
  while (waits_ && is_full()) WaitAWhile();
  if (is_full()) {
    failed_ = true;
    if (!std::exchange(told_full_, true)) {
      console_.Error(fmt::format("flows come faster than {} takes them; some are let go", name_));
    }
    return not_kept_.Add(*flows);
  }
  flows_waiting_ += count;
  Post([this, flows, bucket = MinuteOf(time)] { PutFlows(bucket, *flows); });
}

// What comes before a minute ends is the minute's, whatever its time was.
void MessageKeeper::PutFlows(std::int64_t bucket, const FlowBatch& flows) {
  if (open_minute_ == 0) open_minute_ = bucket;
  flows_ += flows.table.size();
  const FlowSums lost = flow_messages_.Add(open_minute_, flows);
  sink_->Flush();
  lost_.Add(lost);
  TellLost();
  flows_waiting_ -= flows.table.size();
}

void MessageKeeper::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  const std::shared_ptr<CountedMinute> ended = minutes_.Take(tick, harvests);
  if (ended == nullptr) return;
  Post(
      [this, ended, not_kept = std::exchange(not_kept_, {})] { PutMinute(ended.get(), not_kept); });
}

void MessageKeeper::PutMinute(CountedMinute* ended, NotKept not_kept) {
  open_minute_ = 0;
  if (wants_minutes_) minutes_.ReadCounts(ended);
  ended->counted.reset();
  not_kept.Add(std::exchange(lost_, {}));
  ended->minute.flows = std::exchange(flows_, 0);
  ended->minute.flows_not_kept = not_kept.flows;
  if (wants_minutes_) minute_messages_.Put(std::move(ended->minute));
  TellLost();
}

void MessageKeeper::TellLost() {
  if (lost_.flows == 0 && sink_->Lost() == 0) return;
  failed_ = true;
  if (std::exchange(told_lost_, true)) return;
  console_.Error(fmt::format("{} does not take all messages; some are lost", name_));
}

void MessageKeeper::End() {
  Post([this] {
    if (wants_minutes_) minute_messages_.End();
    sink_->End();
    TellLost();
    if (sink_->Lost() > 0) {
      console_.Error(fmt::format("{}: {} messages never arrived", name_, sink_->Lost()));
    }
  });
  while (waits_ && writer_.Waiting() > 0) WaitAWhile();
}

bool MessageKeeper::FinishBy(Writer::Clock::time_point deadline) {
  if (writer_.FinishBy(deadline)) return true;
  // What is on its way may come to an end by itself now.
  constexpr std::chrono::milliseconds kLast(500);
  sink_->GiveUp();
  failed_ = true;
  static_cast<void>(writer_.FinishBy(Writer::Clock::now() + kLast));
  return false;
}

}  // namespace flow::host
