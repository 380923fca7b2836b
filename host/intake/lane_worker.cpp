// SPDX-License-Identifier: Apache-2.0
#include "host/intake/lane_worker.h"

#include <time.h>
#include <unistd.h>

#include <utility>

#include "host/base/memory_budget.h"
#include "host/engine/growth_time.h"
#include "host/intake/lane.h"

namespace flow::host {
namespace {

TimeBudget::Clock::duration TimeOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// To a few milliseconds, and cheap enough for every datagram.
TimeBudget::Clock::time_point CoarseNow() {
  return TimeBudget::Clock::time_point(TimeOf(CLOCK_MONOTONIC_COARSE));
}

}  // namespace

LaneWorker::LaneWorker(Lane& lane, std::size_t most_batches, bool drops_when_full)
    : lane_(lane), most_batches_(most_batches), drops_when_full_(drops_when_full) {
  lane_.mailbox().OnPost([this] {
    const std::lock_guard lock(mutex_);
    has_work_.notify_one();
  });
  thread_ = std::thread([this] {
    id_ = std::this_thread::get_id();
    Loop();
    RestHere();
  });
}

LaneWorker::~LaneWorker() { Finish(); }

void LaneWorker::Take(const IID& protocol, const UdpPacket& packet, Portion portion, bool tells) {
  if (gathered_->Add(protocol, packet, portion, tells)) return;
  Push();
  gathered_->Add(protocol, packet, portion, tells);
}

void LaneWorker::Push() {
  if (!gathered_->entries().empty() && !EnqueueGathered()) DropGathered();
}

void LaneWorker::DropGathered() {
  if (!dropped_numbers_) dropped_numbers_ = std::make_unique<DroppedNumbers>();
  for (const PacketBatch::Entry& entry : gathered_->entries()) {
    if (entry.portion == Portion::kRecords) continue;  // its numbers are another lane's
    if (entry.tells && on_lost_) on_lost_(entry.packet);
    if (numbers_kept_ + dropped_numbers_->Size() < Shares().dropped_numbers) {
      dropped_numbers_->Add(entry.packet);
    } else {
      dropped_numbers_->AddUnseen(entry.packet);
    }
  }
  dropped_.fetch_add(gathered_->Datagrams(), std::memory_order_relaxed);
  gathered_->Clear();
}

std::unique_ptr<DroppedNumbers> LaneWorker::TakeDropped() {
  if (dropped_numbers_) numbers_kept_ += dropped_numbers_->Size();
  return std::move(dropped_numbers_);
}

bool LaneWorker::PushIfIdle() {
  if (gathered_->entries().empty()) return false;
  {
    const std::lock_guard lock(mutex_);
    if (!queue_.empty()) return true;
  }
  Push();
  return false;
}

void LaneWorker::Run(Task task) {
  Push();
  const std::lock_guard lock(mutex_);
  queue_.push_back({TakeDropped(), nullptr, std::move(task)});
  has_work_.notify_one();
}

// False when a full queue is to drop the batch, or nobody will take it any more.
bool LaneWorker::EnqueueGathered() {
  std::unique_lock lock(mutex_);
  if (queued_batches_ >= most_batches_) {
    if (drops_when_full_ && !gathered_->HasNumbers()) return false;
    if (!drops_when_full_) {
      has_room_.wait(lock, [this] { return queued_batches_ < most_batches_ || ended_; });
    }
  }
  if (ended_) return false;
  queue_.push_back({TakeDropped(), std::move(gathered_), nullptr});
  ++queued_batches_;
  ++pushed_;
  has_work_.notify_one();
  if (spare_.empty()) {
    gathered_ = std::make_unique<PacketBatch>();
  } else {
    gathered_ = std::move(spare_.back());
    spare_.pop_back();
  }
  return true;
}

void LaneWorker::Loop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    has_work_.wait(lock, [this] {
      return !queue_.empty() || finishing_ || ended_ || lane_.mailbox().HasMail();
    });
    if (ended_ || (queue_.empty() && finishing_ && !lane_.mailbox().HasMail())) return;
    Work work;
    if (!queue_.empty()) {
      work = std::move(queue_.front());
      queue_.pop_front();
      if (work.batch) {
        --queued_batches_;
        at_work_ = work.batch.get();
        given_ += at_work_->entries().size();
        left_in_batch_ = at_work_->entries().size();
        left_to_meter_ = at_work_->Datagrams();
      }
      has_room_.notify_one();
    }
    lock.unlock();
    Do(work);
    if (work.batch) done_.fetch_add(1, std::memory_order_release);
    lock.lock();
    at_work_ = nullptr;
    if (work.batch) {
      work.batch->Clear();
      constexpr std::size_t kMostSpare = 16;
      const bool has_room = spare_.size() + queued_batches_ < most_batches_;
      if (has_room && spare_.size() < kMostSpare) spare_.push_back(std::move(work.batch));
    }
  }
}

void LaneWorker::Do(const Work& work) {
  lane_.TakeMessages();
  if (work.dropped) {
    lane_.NoteDropped(*work.dropped);
    numbers_kept_ -= work.dropped->Size();
  }
  if (work.batch) Meter(*work.batch);
  if (work.task) work.task(lane_);
  lane_.TellReloads();
}

void LaneWorker::Meter(const PacketBatch& batch) {
  std::size_t left = batch.entries().size();
  std::size_t to_meter = batch.Datagrams();
  auto now = CoarseNow();
  used_ = TimeOf(CLOCK_THREAD_CPUTIME_ID);
  for (const PacketBatch::Entry& entry : batch.entries()) {
    if (ended_.load(std::memory_order_relaxed)) return;  // what is left counts as dropped
    left_in_batch_.store(--left, std::memory_order_relaxed);
    if (entry.portion == Portion::kNumbers) {
      lane_.NoteNumbers(entry.packet);
      continue;
    }
    left_to_meter_.store(--to_meter, std::memory_order_relaxed);
    if (!drops_when_full_) {
      lane_.Handle(*entry.protocol, entry.packet, entry.portion);
      continue;
    }
    if (budget_.IsHeldBack(entry.packet.source.address, now)) {
      lane_.HoldBack(entry.packet, entry.portion);
      continue;
    }
    const auto growth = TimeOfGrowth();
    lane_.Meter(*entry.protocol, entry.packet, entry.portion);
    const auto metered = CoarseNow();
    const auto took = metered - now - (TimeOfGrowth() - growth);
    if (took >= TimeBudget::kMost) Spend(entry.packet.source.address, took);
    lane_.Enter(*entry.protocol, entry.packet);
    now = CoarseNow();
    if (now != metered) used_ = TimeOf(CLOCK_THREAD_CPUTIME_ID);  // what the lane did is nobody's
  }
}

// A thread that was not let run has spent no time.
void LaneWorker::Spend(const IpAddress& exporter, TimeBudget::Clock::duration took) {
  const auto before = std::exchange(used_, TimeOf(CLOCK_THREAD_CPUTIME_ID));
  const auto offence = budget_.Spend(exporter, std::min(took, used_ - before), CoarseNow());
  if (!offence) return;
  constexpr std::size_t kMostOffences = 100;
  const std::lock_guard lock(mutex_);
  if (offences_.size() < kMostOffences) offences_.push_back(*offence);
}

std::optional<LaneWorker::AtWork> LaneWorker::Now() {
  const std::lock_guard lock(mutex_);
  if (at_work_ == nullptr) return std::nullopt;
  const std::size_t left = left_in_batch_;
  const std::size_t at = at_work_->entries().size() - left;
  if (at == 0) return std::nullopt;
  const UdpPacket& packet = at_work_->entries()[at - 1].packet;
  return AtWork{packet.source, packet.payload_length, given_ - left};
}

LaneWorker::Load LaneWorker::LoadNow() {
  Load load;
  clockid_t clock = 0;
  if (pthread_getcpuclockid(thread_.native_handle(), &clock) == 0) {
    load.busy_seconds = std::chrono::duration<double>(TimeOf(clock)).count();
  }
  const std::lock_guard lock(mutex_);
  load.batches = queued_batches_;
  return load;
}

std::vector<TimeBudget::Offence> LaneWorker::TakeOffences() {
  const std::lock_guard lock(mutex_);
  return std::exchange(offences_, {});
}

void LaneWorker::RestHere() {
  left_in_batch_ = 0;
  dropped_ += left_to_meter_.exchange(0);
  rests_.store(true, std::memory_order_release);
}

void LaneWorker::Finish() {
  if (!thread_.joinable()) return;
  if (gathered_) Push();
  {
    const std::lock_guard lock(mutex_);
    finishing_ = true;
    has_work_.notify_one();
  }
  thread_.join();
}

void LaneWorker::End() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  std::size_t left = 0;
  for (const Work& work : queue_) left += work.batch ? work.batch->Datagrams() : 0;
  dropped_ += left;
  lane_.AskRest([this] {
    RestHere();
    for (;;) pause();  // the process is about to end
  });
  has_work_.notify_one();
  has_room_.notify_one();
}

}  // namespace flow::host
