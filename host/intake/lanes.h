// All lanes, and the threads that they work in.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "host/intake/lane.h"
#include "host/intake/lane_worker.h"

namespace flow::host {

// How lanes work.
enum class LaneMode {
  kInline,  // in the thread of the intake: every call in order, for traces and for single lanes
  kWait,    // in threads of their own; the intake waits while a lane's queue is full
  kDrop,    // in threads of their own; what finds a full queue is dropped, and counted
};

class Lanes {
 public:
  // count is at least 1. Components are made, and read their policies, in the calling thread.
  Lanes(const LaneParts& parts, int count, LaneMode mode);
  ~Lanes();
  Lanes(const Lanes&) = delete;
  Lanes& operator=(const Lanes&) = delete;

  // All these belong to the thread of the intake. Take hands a datagram to its exporter's lane.
  void Take(const IID& protocol, const UdpPacket& packet);
  // Push sends everything off that Take gathered for the threads.
  void Push();
  // PushIdle does so where the lane is idle, so that a busy one gets full batches; true when
  // something is left.
  bool PushIdle();
  // ForEach runs a task in every lane, after all datagrams taken so far.
  void ForEach(const std::function<void(Lane&)>& task);
  // Finish waits until all is done and ends the threads.
  void Finish();

  // EndHere is for the end of the process in the middle of a lane's work: all lanes and the intake
  // come to rest, after which the caller may look at the lanes with Each.
  void EndHere();
  void Each(const std::function<void(Lane&)>& visit);

  [[nodiscard]] std::size_t size() const { return lanes_.size(); }

  // Records metered so far, and datagrams that found a full queue; any thread may ask.
  [[nodiscard]] std::uint64_t Records() const;
  [[nodiscard]] std::uint64_t Dropped() const;

 private:
  std::size_t LaneOf(const UdpPacket& packet);

  std::vector<std::unique_ptr<Lane>> lanes_;
  std::vector<std::unique_ptr<LaneWorker>> workers_;  // one for each lane, none for kInline
  // Where each exporter's datagrams go, and how many went to each lane.
  absl::flat_hash_map<IpAddress, std::size_t> lane_of_;
  std::vector<std::uint64_t> taken_;
  std::atomic<bool> ended_ = false;
  std::atomic<bool> intake_rests_ = false;
};

}  // namespace flow::host
