#include "host/period/reporter.h"

#include <utility>

namespace flow::host {

Reporter::Reporter(Handler handler) : handler_(std::move(handler)), thread_([this] { Loop(); }) {}

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

bool Reporter::IsBusy() {
  const std::lock_guard lock(mutex_);
  return !rounds_.empty();
}

void Reporter::Wait() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return rounds_.empty(); });
}

bool Reporter::WaitBy(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return changed_.wait_until(lock, deadline, [this] { return rounds_.empty(); });
}

void Reporter::FinishHere(Lanes& lanes, const Tick& last) {
  End();
  for (std::vector<Harvest> harvests; std::optional<Tick> tick = TakeRound(&harvests);) {
    tick->is_last = false;  // the last tick is
    handler_(*tick, std::move(harvests));
  }
  std::vector<Harvest> harvests;
  lanes.EachAtRest([&](Lane& lane) { harvests.push_back(lane.Reap()); });
  handler_(last, std::move(harvests));
}

// What lanes that do not rest hand out later goes nowhere.
std::optional<Tick> Reporter::TakeRound(std::vector<Harvest>* harvests) {
  const std::lock_guard lock(mutex_);
  if (rounds_.empty()) return std::nullopt;
  Round& round = *rounds_.front();
  *harvests = std::exchange(round.harvests, std::vector<Harvest>(round.harvests.size()));
  std::erase_if(*harvests, [](const Harvest& harvest) { return harvest.store == nullptr; });
  Tick tick = round.tick;
  rounds_.pop_front();
  return tick;
}

void Reporter::Loop() {
  std::unique_lock lock(mutex_);
  const auto has_whole = [this] { return !rounds_.empty() && rounds_.front()->awaited == 0; };
  for (;;) {
    changed_.wait(lock, [&] { return has_whole() || ending_; });
    if (!has_whole()) return;
    const std::shared_ptr<Round> round = rounds_.front();
    lock.unlock();
    handler_(round->tick, std::move(round->harvests));
    lock.lock();
    rounds_.pop_front();
    changed_.notify_all();
  }
}

}  // namespace flow::host
