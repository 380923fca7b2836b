// A lane's thread, and the queue of datagrams in front of it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/intake/dropped_numbers.h"
#include "host/intake/packet_batch.h"

namespace flow::host {

class Lane;

class LaneWorker {
 public:
  using Task = std::function<void(Lane&)>;

  // Starts the thread. At most most_batches full batches wait; the lane outlives the worker.
  LaneWorker(Lane& lane, std::size_t most_batches, bool drops_when_full);
  ~LaneWorker();
  LaneWorker(const LaneWorker&) = delete;
  LaneWorker& operator=(const LaneWorker&) = delete;

  // These belong to the thread of the intake. Take gathers a datagram; Push sends off what was
  // gathered, when there is anything; Run has a task done after all of that.
  void Take(const IID& protocol, const UdpPacket& packet);
  void Push();
  void Run(Task task);
  // PushIfIdle is Push where the lane has nothing else to do; true when something is left gathered.
  bool PushIfIdle();

  // Finish waits until everything is done and ends the thread.
  void Finish();
  // End has the thread end after the datagram that it is at, and does not wait for it. Whatever is
  // left behind that counts as dropped.
  void End();
  [[nodiscard]] bool HasEnded() const { return has_ended_; }

  [[nodiscard]] bool IsThisThread() const { return thread_.get_id() == std::this_thread::get_id(); }
  [[nodiscard]] std::uint64_t Dropped() const { return dropped_.load(std::memory_order_relaxed); }

 private:
  // Each part may be missing; they are done in this order.
  struct Work {
    std::unique_ptr<DroppedNumbers> dropped;
    std::unique_ptr<PacketBatch> batch;
    Task task;
  };

  bool EnqueueGathered();
  void DropGathered();
  std::unique_ptr<DroppedNumbers> TakeDropped();
  void Loop();
  void Do(const Work& work);

  Lane& lane_;
  std::size_t most_batches_;
  bool drops_when_full_;
  std::unique_ptr<PacketBatch> gathered_ = std::make_unique<PacketBatch>();
  std::unique_ptr<DroppedNumbers> dropped_numbers_;  // that the lane is still to be told of
  std::atomic<std::size_t> numbers_kept_ = 0;        // bytes of those that it is on its way to
  std::atomic<std::uint64_t> dropped_ = 0;

  std::mutex mutex_;
  std::condition_variable has_work_;
  std::condition_variable has_room_;
  std::deque<Work> queue_;
  std::size_t queued_batches_ = 0;
  std::vector<std::unique_ptr<PacketBatch>> spare_;
  bool finishing_ = false;
  std::atomic<std::size_t> left_in_batch_ = 0;  // behind the datagram that the thread is at
  std::atomic<bool> ended_ = false;             // nothing more is to be done
  std::atomic<bool> has_ended_ = false;         // nothing more will be
  std::thread thread_;
};

}  // namespace flow::host
