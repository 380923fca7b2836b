// SPDX-License-Identifier: Apache-2.0
// A lane's thread, and the queue of datagrams in front of it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/intake/dropped_numbers.h"
#include "host/intake/packet_batch.h"
#include "host/intake/time_budget.h"

namespace flow::host {

class Lane;

class LaneWorker {
 public:
  using Task = std::function<void(Lane&)>;

  // The datagram that a lane is at.
  struct AtWork {
    Endpoint exporter;
    std::size_t length = 0;
    std::uint64_t number = 0;  // of the datagrams that the lane was given
  };

  // How much it has to do.
  struct Load {
    double busy_seconds = 0;  // of processor time, since it started
    std::size_t batches = 0;  // that wait
  };

  // Starts the thread. At most most_batches full batches wait; the lane outlives the worker. With
  // drops_when_full exporters have a budget of time, too.
  LaneWorker(Lane& lane, std::size_t most_batches, bool drops_when_full);
  ~LaneWorker();
  LaneWorker(const LaneWorker&) = delete;
  LaneWorker& operator=(const LaneWorker&) = delete;

  // These belong to the thread of the intake. Take gathers a datagram; Push sends off what was
  // gathered, when there is anything; Run has a task done after all of that. What tells something
  // and is dropped goes to OnLost.
  void Take(const IID& protocol, const UdpPacket& packet, Portion portion = Portion::kAll,
            bool tells = false);
  void Push();
  void Run(Task task);
  void OnLost(std::function<void(const UdpPacket&)> on_lost) { on_lost_ = std::move(on_lost); }
  // Gathering is the number, from 1, of the batch that is being gathered, unless it is dropped;
  // Done that of the last one that the lane is done with, for any thread.
  [[nodiscard]] std::uint64_t Gathering() const { return pushed_ + 1; }
  [[nodiscard]] std::uint64_t Done() const { return done_.load(std::memory_order_acquire); }
  // How many batches wait, and whether there is room to leave numbers here that no full queue may
  // drop, and to meter for another lane.
  [[nodiscard]] std::size_t Waiting() const {
    return queued_batches_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] bool HasRoomForNumbers() const {
    return !drops_when_full_ || Waiting() + 2 <= most_batches_ + kRoomForNumbers;
  }
  [[nodiscard]] bool HasRoomForOthers() const { return Waiting() + 2 <= most_batches_; }
  // PushIfIdle is Push where the lane has nothing else to do; true when something is left gathered.
  bool PushIfIdle();

  // Finish waits until everything is done and ends the thread.
  void Finish();
  // End has the thread end after the datagram that it is at, or come to rest within it where the
  // meter makes a call that allows that, and does not wait for it. Whatever is left behind that
  // counts as dropped, and so does what is pushed afterwards. Any thread may call it.
  void End();
  // Whether the thread has ended or rests for ever, so that another may look at the lane.
  [[nodiscard]] bool Rests() const { return rests_.load(std::memory_order_acquire); }
  // RestHere is for the lane's own thread when it is not to come back.
  void RestHere();
  [[nodiscard]] bool IsThisThread() const { return id_ == std::this_thread::get_id(); }

  // For the watch, from any thread.
  [[nodiscard]] std::optional<AtWork> Now();
  [[nodiscard]] Load LoadNow();
  std::vector<TimeBudget::Offence> TakeOffences();
  [[nodiscard]] std::uint64_t Dropped() const { return dropped_.load(std::memory_order_relaxed); }

 private:
  // Each part may be missing; they are done in this order.
  struct Work {
    std::unique_ptr<DroppedNumbers> dropped;
    std::unique_ptr<PacketBatch> batch;
    Task task;
  };

  // Batches with numbers may be so many more than others, so that a lane that drops can still leave
  // datagrams to another one.
  static constexpr std::size_t kRoomForNumbers = 4;

  bool EnqueueGathered();
  void DropGathered();
  std::unique_ptr<DroppedNumbers> TakeDropped();
  void Loop();
  void Do(const Work& work);
  void Meter(const PacketBatch& batch);
  void Spend(const IpAddress& exporter, TimeBudget::Clock::duration took);

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
  std::atomic<std::size_t> queued_batches_ = 0;  // changed with the lock held
  std::uint64_t pushed_ = 0;                     // the intake's
  std::atomic<std::uint64_t> done_ = 0;
  std::function<void(const UdpPacket&)> on_lost_;
  std::vector<std::unique_ptr<PacketBatch>> spare_;
  const PacketBatch* at_work_ = nullptr;
  std::uint64_t given_ = 0;  // datagrams, those at work included
  std::vector<TimeBudget::Offence> offences_;
  bool finishing_ = false;
  std::atomic<std::size_t> left_in_batch_ = 0;  // behind the datagram that the thread is at
  std::atomic<std::size_t> left_to_meter_ = 0;  // of these
  std::atomic<bool> ended_ = false;             // nothing more is to be done
  std::atomic<bool> rests_ = false;             // nothing more will be

  TimeBudget budget_;                   // the thread's own
  TimeBudget::Clock::duration used_{};  // processor time of the thread, when last asked
  std::atomic<std::thread::id> id_;
  std::thread thread_;
};

}  // namespace flow::host
