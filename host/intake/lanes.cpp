// SPDX-License-Identifier: Apache-2.0
#include "host/intake/lanes.h"

#include <absl/hash/hash.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "host/base/memory_budget.h"
#include "host/export/export_format.h"

namespace flow::host {
namespace {

// What a burst may fill before something is lost is a share of memory; this is enough to keep a
// lane at work.
constexpr std::size_t kReadAheadBatches = 8;

}  // namespace

Lanes::Lanes(const LaneParts& parts, int count, LaneMode mode)
    : taken_(static_cast<std::size_t>(count)) {
  for (int number = 1; number <= count; ++number) {
    lanes_.push_back(std::make_unique<Lane>(parts, number));
  }
  if (mode == LaneMode::kInline) return;
  const bool drops = mode == LaneMode::kDrop;
  const std::size_t burst_batches =
      std::max(Shares().queue / PacketBatch::kCapacity, kReadAheadBatches);
  for (const auto& lane : lanes_) {
    workers_.push_back(
        std::make_unique<LaneWorker>(*lane, drops ? burst_batches : kReadAheadBatches, drops));
  }
}

Lanes::~Lanes() { Finish(); }

// An exporter has one lane, whatever port and forwarder its datagrams come from: a meter keeps what
// it learns of an exporter, its sampling rate above all, under its address alone. It is the lane
// that had least to do when the exporter first showed; beyond a number that no network has, by
// hash.
std::size_t Lanes::LaneOf(const UdpPacket& packet) {
  if (lanes_.size() == 1) return 0;
  constexpr std::size_t kMostExporters = std::size_t{1} << 16;
  const IpAddress exporter = ShimExporter(packet.Payload()).value_or(packet.source.address);
  auto known = lane_of_.find(exporter);
  if (known == lane_of_.end()) {
    if (lane_of_.size() >= kMostExporters) return absl::HashOf(exporter) % lanes_.size();
    const auto least = std::ranges::min_element(taken_);
    known = lane_of_.emplace(exporter, static_cast<std::size_t>(least - taken_.begin())).first;
  }
  return known->second;
}

// Where an exporter's lane is behind, the one that has least to do meters datagrams that need
// nothing of what its meters have learnt.
std::size_t Lanes::MeteringLane(std::size_t home, const IID& protocol,
                                const UdpPacket& packet) const {
  constexpr std::size_t kBehind = 2;  // batches
  const std::size_t waiting = workers_[home]->Waiting();
  if (waiting < kBehind || !lanes_[home]->CanShare(protocol)) return home;
  const auto least =
      std::ranges::min_element(workers_, {}, [](const auto& worker) { return worker->Waiting(); });
  if ((*least)->Waiting() + kBehind > waiting || !(*least)->HasRoomForOthers() ||
      !workers_[home]->HasRoomForNumbers() || !StandsAlone(protocol, packet.Payload())) {
    return home;
  }
  return static_cast<std::size_t>(least - workers_.begin());
}

void Lanes::Take(const IID& protocol, const UdpPacket& packet) {
  const std::size_t lane = LaneOf(packet);
  if (!workers_.empty()) {
    const std::size_t at = MeteringLane(lane, protocol, packet);
    ++taken_[at];
    if (at == lane) return workers_[lane]->Take(protocol, packet);
    workers_[at]->Take(protocol, packet, Portion::kRecords);
    return workers_[lane]->Take(protocol, packet, Portion::kNumbers);
  }
  ++taken_[lane];
  lanes_[lane]->Handle(protocol, packet);
  for (const auto& each : lanes_) {
    if (each->mailbox().HasMail()) each->TakeMessages();
  }
}

void Lanes::Push() {
  for (const auto& worker : workers_) worker->Push();
}

bool Lanes::PushIdle() {
  bool left = false;
  for (const auto& worker : workers_) left = worker->PushIfIdle() || left;
  return left;
}

void Lanes::ForEach(const std::function<void(Lane&)>& task) {
  if (workers_.empty()) return Each(task);
  for (const auto& worker : workers_) worker->Run(task);
}

void Lanes::HandOutFlows(std::size_t most, const Lane::FlowSink& sink) {
  for (const auto& lane : lanes_) lane->HandOutFlows(most, sink);
}

void Lanes::Finish() {
  for (const auto& worker : workers_) worker->Finish();
}

bool Lanes::EndBy(Clock::time_point deadline, bool in_intake) {
  using namespace std::chrono_literals;
  if (workers_.empty()) return true;
  if (ended_.exchange(true)) return false;
  RestHere();
  // What the intake has taken is in the queues once it rests. It may wait for room in the queue of
  // a lane that takes nothing any more, so that the lanes end after half of the time all the same.
  const auto intake_rests = [&] { return in_intake || intake_rests_; };
  const auto half = Clock::now() + (deadline - Clock::now()) / 2;
  while (!intake_rests() && Clock::now() < half) std::this_thread::sleep_for(5ms);
  for (const auto& worker : workers_) worker->End();
  const auto rests = [](const auto& worker) { return worker->Rests(); };
  while (!(intake_rests() && std::ranges::all_of(workers_, rests)) && Clock::now() < deadline) {
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

void Lanes::EachAtRest(const std::function<void(Lane&)>& visit) {
  if (workers_.empty()) return Each(visit);
  for (std::size_t i = 0; i < lanes_.size(); ++i) {
    if (workers_[i]->Rests()) visit(*lanes_[i]);
  }
}

void Lanes::RestIfEnding() {
  if (!ended_) return;
  Push();
  intake_rests_ = true;
  RestForEver();
}

void Lanes::RestHere() {
  for (const auto& worker : workers_) {
    if (worker->IsThisThread()) worker->RestHere();
  }
}

void Lanes::RestForEver() {
  RestHere();
  for (;;) pause();  // the process is about to end
}

std::vector<Lanes::BusyLane> Lanes::Busy() const {
  std::vector<BusyLane> busy;
  for (std::size_t i = 0; i < workers_.size(); ++i) {
    if (workers_[i]->Rests()) continue;
    const auto at = workers_[i]->Now();
    if (at) busy.push_back({i + 1, *at});
  }
  return busy;
}

std::vector<LaneWorker::Load> Lanes::Loads() const {
  std::vector<LaneWorker::Load> loads;
  for (const auto& worker : workers_) loads.push_back(worker->LoadNow());
  return loads;
}

std::vector<TimeBudget::Offence> Lanes::TakeOffences() {
  std::vector<TimeBudget::Offence> all;
  for (const auto& worker : workers_) {
    const auto offences = worker->TakeOffences();
    all.insert(all.end(), offences.begin(), offences.end());
  }
  return all;
}

void Lanes::Each(const std::function<void(Lane&)>& visit) {
  for (const auto& lane : lanes_) visit(*lane);
}

bool Lanes::WaitForPolicies() const {
  return std::ranges::any_of(lanes_, [](const auto& lane) { return lane->WaitsForPolicies(); });
}

std::uint64_t Lanes::Records() const {
  std::uint64_t records = 0;
  for (const auto& lane : lanes_) records += lane->Records();
  return records;
}

std::uint64_t Lanes::Dropped() const {
  std::uint64_t dropped = 0;
  for (const auto& worker : workers_) dropped += worker->Dropped();
  return dropped;
}

}  // namespace flow::host
