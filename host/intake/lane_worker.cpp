#include "host/intake/lane_worker.h"

#include <utility>

#include "host/intake/lane.h"

namespace flow::host {
namespace {

// For the numbers of dropped datagrams, some 400,000 of NetFlow, while a lane is at one batch.
constexpr std::size_t kMostNumbers = std::size_t{32} << 20;

}  // namespace

LaneWorker::LaneWorker(Lane& lane, std::size_t most_batches, bool drops_when_full)
    : lane_(lane), most_batches_(most_batches), drops_when_full_(drops_when_full) {
  lane_.mailbox().OnPost([this] {
    const std::lock_guard lock(mutex_);
    has_work_.notify_one();
  });
  thread_ = std::thread([this] {
    Loop();
    has_ended_ = true;
  });
}

LaneWorker::~LaneWorker() { Finish(); }

void LaneWorker::Take(const IID& protocol, const UdpPacket& packet) {
  if (gathered_->Add(protocol, packet)) return;
  Push();
  gathered_->Add(protocol, packet);
}

void LaneWorker::Push() {
  if (!gathered_->entries().empty() && !EnqueueGathered()) DropGathered();
}

void LaneWorker::DropGathered() {
  if (!dropped_numbers_) dropped_numbers_ = std::make_unique<DroppedNumbers>();
  for (const PacketBatch::Entry& entry : gathered_->entries()) {
    if (numbers_kept_ + dropped_numbers_->Size() < kMostNumbers)
      dropped_numbers_->Add(entry.packet);
  }
  dropped_.fetch_add(gathered_->entries().size(), std::memory_order_relaxed);
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

// False when a full queue is to drop the batch.
bool LaneWorker::EnqueueGathered() {
  std::unique_lock lock(mutex_);
  if (queued_batches_ >= most_batches_) {
    if (drops_when_full_) return false;
    has_room_.wait(lock, [this] { return queued_batches_ < most_batches_ || ended_; });
  }
  queue_.push_back({TakeDropped(), std::move(gathered_), nullptr});
  ++queued_batches_;
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
      if (work.batch) --queued_batches_;
      has_room_.notify_one();
    }
    lock.unlock();
    Do(work);
    lock.lock();
    if (work.batch) {
      work.batch->Clear();
      constexpr std::size_t kMostSpare = 16;
      if (spare_.size() < kMostSpare) spare_.push_back(std::move(work.batch));
    }
  }
}

void LaneWorker::Do(const Work& work) {
  lane_.TakeMessages();
  if (work.dropped) {
    lane_.NoteDropped(*work.dropped);
    numbers_kept_ -= work.dropped->Size();
  }
  if (work.batch) {
    std::size_t left = work.batch->entries().size();
    for (const PacketBatch::Entry& entry : work.batch->entries()) {
      if (ended_.load(std::memory_order_relaxed)) return;
      left_in_batch_.store(--left, std::memory_order_relaxed);
      lane_.Handle(*entry.protocol, entry.packet);
    }
  }
  if (work.task) work.task(lane_);
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
  std::size_t left = left_in_batch_ + (gathered_ ? gathered_->entries().size() : 0);
  for (const Work& work : queue_) left += work.batch ? work.batch->entries().size() : 0;
  dropped_ += left;
  has_work_.notify_one();
  has_room_.notify_one();
}

}  // namespace flow::host
