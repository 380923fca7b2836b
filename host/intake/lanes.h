// SPDX-License-Identifier: Apache-2.0
// All lanes, and the threads that they work in.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "host/intake/lane.h"
#include "host/intake/lane_worker.h"
#include "host/intake/template_ledger.h"

namespace flow::host {

// How lanes work.
enum class LaneMode {
  kInline,  // in the thread of the intake: every call in order, for traces and for single lanes
  kWait,    // in threads of their own; the intake waits while a lane's queue is full
  kDrop,    // in threads of their own; what finds a full queue is dropped, and counted
};

class Lanes {
 public:
  using Clock = std::chrono::steady_clock;

  // count is at least 1. Components are made, and read their policies, in the calling thread.
  Lanes(const LaneParts& parts, int count, LaneMode mode);
  ~Lanes();
  Lanes(const Lanes&) = delete;
  Lanes& operator=(const Lanes&) = delete;

  // All these belong to the thread of the intake. Take hands a datagram to its exporter's lane, or
  // where that one is behind and the datagram stands alone, to another.
  void Take(const IID& protocol, const UdpPacket& packet);
  // Push sends everything off that Take gathered for the threads.
  void Push();
  // PushIdle does so where the lane is idle, so that a busy one gets full batches; true when
  // something is left.
  bool PushIdle();
  // ForEach runs a task in every lane, after all datagrams taken so far.
  void ForEach(const std::function<void(Lane&)>& task);
  // HandOutFlows has every lane hand out its flows early where there are many; before the first
  // datagram.
  void HandOutFlows(std::size_t most, const Lane::FlowSink& sink);
  // ShowFlows has every lane count flows as reports show them, likewise.
  void ShowFlows();
  // Finish waits until all is done and ends the threads.
  void Finish();

  // EndBy is for an end that does not wait for the lanes, as when the plug-in ends the process in
  // the middle of a datagram. The intake, unless this is its thread, and the lanes come to rest, in
  // the middle of a datagram too, or are given up at the deadline; what waited for them counts as
  // dropped. Then the caller may look at those that rest with EachAtRest; the others stand in Busy.
  // False where another thread was first: the end is that one's, and the caller has to rest.
  [[nodiscard]] bool EndBy(Clock::time_point deadline, bool in_intake);
  void EachAtRest(const std::function<void(Lane&)>& visit);

  // RestIfEnding is for the thread of the intake, between datagrams and while it waits for what the
  // lanes do: it does not return when another thread is ending the process.
  void RestIfEnding();
  [[nodiscard]] bool IsEnding() const { return ended_; }
  [[nodiscard]] bool IntakeRests() const { return intake_rests_; }
  // RestHere is for a lane's thread that is not to come back from a datagram; RestForEver does not
  // return.
  void RestHere();
  [[noreturn]] void RestForEver();

  // What each lane is at that does not rest, for the watch. Any thread may ask.
  struct BusyLane {
    std::size_t lane;  // from 1
    LaneWorker::AtWork at;
  };
  [[nodiscard]] std::vector<BusyLane> Busy() const;
  // How much each lane has to do; any thread may ask until Finish.
  [[nodiscard]] std::vector<LaneWorker::Load> Loads() const;
  // Exporters that are held back since it was last asked.
  std::vector<TimeBudget::Offence> TakeOffences();

  // Whether meters wait to be replaced until somebody has looked at the policies. Any thread.
  [[nodiscard]] bool WaitForPolicies() const;

  [[nodiscard]] std::size_t size() const { return lanes_.size(); }

  // Records metered so far, and datagrams that found a full queue; any thread may ask.
  [[nodiscard]] std::uint64_t Records() const;
  [[nodiscard]] std::uint64_t Dropped() const;

 private:
  std::size_t LaneOf(const UdpPacket& packet);
  TemplateLedger::Kind LookUp(std::size_t home, const IID& protocol, const UdpPacket& packet);
  bool CanShare(std::size_t home, const IID& protocol, const UdpPacket& packet,
                const TemplateLedger::Kind& kind);
  [[nodiscard]] std::size_t LaneToHelp(std::size_t home, bool by_template) const;
  bool HaveReloaded();
  void WaitForHelpers(std::size_t home, const IpAddress& exporter);
  void Hand(std::size_t home, const IID& protocol, const UdpPacket& packet);
  void Each(const std::function<void(Lane&)>& visit);

  std::vector<std::unique_ptr<Lane>> lanes_;
  std::vector<std::unique_ptr<LaneWorker>> workers_;  // one for each lane, none for kInline
  // Where each exporter's datagrams go, and how many each lane meters.
  absl::flat_hash_map<IpAddress, std::size_t> lane_of_;
  std::vector<std::uint64_t> taken_;
  TemplateLedger ledger_;
  // For exporters, the last batch of each lane in which there is data by their templates.
  absl::flat_hash_map<IpAddress, std::vector<std::uint64_t>> lent_;
  std::uint64_t reloads_ = 0;  // of all meters' policies, when last asked
  std::atomic<bool> ended_ = false;
  std::atomic<bool> intake_rests_ = false;
};

}  // namespace flow::host
