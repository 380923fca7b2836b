// SPDX-License-Identifier: Apache-2.0
#include "host/period/reporter.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {

Reporter::Reporter(Handler handler, EarlyHandler early)
    : handler_(std::move(handler)), early_(std::move(early)), thread_([this] { Loop(); }) {}

Reporter::~Reporter() { End(); }

void Reporter::End() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

void Reporter::Reap(Lanes& lanes, Tick tick) {
  const auto round = std::make_shared<Round>();
  round->tick = std::move(tick);
  round->harvests.resize(lanes.size());
  round->awaited = lanes.size();
  {
    const std::lock_guard lock(mutex_);
    rounds_.push_back(round);
  }
  lanes.ForEach([this, round](Lane& lane) { Take(round.get(), &lane); });
}

void Reporter::Take(Round* round, Lane* lane) {
  Harvest harvest = lane->Reap();
  const std::lock_guard lock(mutex_);
  round->harvests[static_cast<std::size_t>(lane->number() - 1)] = std::move(harvest);
  if (--round->awaited == 0) changed_.notify_all();
}

void Reporter::TakeFlowsEarly(Lanes& lanes) {
  constexpr std::size_t kMostFlows = std::size_t{1} << 18;  // some 60 MB
  constexpr std::size_t kFlowBytes = 1000;                  // in a part of what a lane may count
  lanes.HandOutFlows(
      std::min(kMostFlows, Shares().lane_keys / kFlowBytes),
      [this](const Lane& lane, EarlyFlows flows) { TakeEarly(lane, std::move(flows)); });
}

// A lane that has yet to come to a tick which was begun hands out what belongs to that tick.
void Reporter::TakeEarly(const Lane& lane, EarlyFlows flows) {
  const std::size_t count = flows.flows.table.size();
  if (early_waiting_ + count > Shares().flows_waiting) {
    flows.flows.LetGo();
    NoteLetGo(LetGo::kKeys, count);
  } else {
    early_waiting_ += count;
  }
  const std::lock_guard lock(mutex_);
  const auto at = static_cast<std::size_t>(lane.number() - 1);
  const auto awaited = std::ranges::find_if(rounds_, [at](const auto& round) {
    return round->awaited > 0 && round->harvests[at].store == nullptr;
  });
  const auto round =
      awaited == rounds_.end() ? rounds_.emplace_back(std::make_shared<Round>()) : *awaited;
  round->early.push_back(std::move(flows));
  changed_.notify_all();
}

bool Reporter::IsBusy() {
  const std::lock_guard lock(mutex_);
  return std::ranges::any_of(rounds_, [](const auto& round) { return round->tick.has_value(); });
}

bool Reporter::WaitBy(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return changed_.wait_until(lock, deadline, [this] { return rounds_.empty(); });
}

void Reporter::FinishHere(Lanes& lanes, const Tick& last) {
  End();
  while (const std::shared_ptr<Round> round = TakeRound()) {
    if (round->tick) round->tick->is_last = false;  // the last tick is
    Handle(round.get());
  }
  std::vector<Harvest> harvests;
  lanes.EachAtRest([&](Lane& lane) { harvests.push_back(lane.Reap()); });
  handler_(last, std::move(harvests));
}

// What lanes that do not rest hand out later goes nowhere.
std::shared_ptr<Reporter::Round> Reporter::TakeRound() {
  const std::lock_guard lock(mutex_);
  if (rounds_.empty()) return nullptr;
  const auto round = std::make_shared<Round>();
  Round& begun = *rounds_.front();
  round->tick = begun.tick;
  round->early = std::exchange(begun.early, {});
  round->harvests = std::exchange(begun.harvests, std::vector<Harvest>(begun.harvests.size()));
  std::erase_if(round->harvests, [](const Harvest& harvest) { return harvest.store == nullptr; });
  rounds_.pop_front();
  return round;
}

void Reporter::Handle(Round* round) {
  for (EarlyFlows& flows : round->early) {
    const std::size_t count = flows.flows.table.size();
    early_(std::move(flows));
    early_waiting_ -= count;
  }
  if (round->tick) handler_(*round->tick, std::move(round->harvests));
}

void Reporter::Loop() {
  std::unique_lock lock(mutex_);
  const auto has_whole = [this] { return !rounds_.empty() && rounds_.front()->awaited == 0; };
  for (;;) {
    changed_.wait(lock, [&] { return has_whole() || ending_; });
    if (!has_whole()) return;
    const std::shared_ptr<Round> round = rounds_.front();
    lock.unlock();
    Handle(round.get());
    lock.lock();
    rounds_.pop_front();
    changed_.notify_all();
  }
}

}  // namespace flow::host
