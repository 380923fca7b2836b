// SPDX-License-Identifier: Apache-2.0
#include "host/intake/lanes.h"

#include <absl/hash/hash.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "host/base/memory_budget.h"
#include "host/export/export_format.h"

namespace flow::host {
namespace {

// What a burst may fill before something is lost is a share of memory; this is enough to keep a
// lane at work.
constexpr std::size_t kReadAheadBatches = 8;

IpAddress ExporterOf(const UdpPacket& packet) {
  return ShimExporter(packet.Payload()).value_or(packet.source.address);
}

}  // namespace

Lanes::Lanes(const LaneParts& parts, int count, LaneMode mode)
    : taken_(static_cast<std::size_t>(count)) {
  LaneParts of_each = parts;
  of_each.has_others = count > 1 && mode != LaneMode::kInline;
  for (int number = 1; number <= count; ++number) {
    lanes_.push_back(std::make_unique<Lane>(of_each, number));
  }
  HaveReloaded();
  if (mode == LaneMode::kInline) return;
  const bool drops = mode == LaneMode::kDrop;
  const std::size_t burst_batches =
      std::max(Shares().queue / PacketBatch::kCapacity, kReadAheadBatches);
  for (const auto& lane : lanes_) {
    workers_.push_back(
        std::make_unique<LaneWorker>(*lane, drops ? burst_batches : kReadAheadBatches, drops));
    workers_.back()->OnLost(
        [this](const UdpPacket& packet) { ledger_.NoteLost(packet.source.address); });
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
  const IpAddress exporter = ExporterOf(packet);
  auto known = lane_of_.find(exporter);
  if (known == lane_of_.end()) {
    if (lane_of_.size() >= kMostExporters) return absl::HashOf(exporter) % lanes_.size();
    const auto least = std::ranges::min_element(taken_);
    known = lane_of_.emplace(exporter, static_cast<std::size_t>(least - taken_.begin())).first;
  }
  return known->second;
}

// What a forwarder's shim names is a meter's to believe, as its policy says.
TemplateLedger::Kind Lanes::LookUp(std::size_t home, const IID& protocol, const UdpPacket& packet) {
  const auto datagram = packet.Payload();
  if (lanes_.size() == 1 || !(protocol == kNetflowProtocol)) return {};
  if (const auto named = ShimExporter(datagram)) {
    const bool is_first = ledger_.LeaveAlone(*named);
    return {.tells = is_first};
  }
  if (!VersionOf(datagram).HasTemplates()) return {};
  // What is gathered already may have to go first.
  return ledger_.Take(packet.source, datagram, workers_[home]->Gathering() + 1);
}

// Where an exporter's lane is behind, another one may meter datagrams that need nothing of what its
// meters have learnt, or what all meters have.
bool Lanes::CanShare(std::size_t home, const IID& protocol, const UdpPacket& packet,
                     const TemplateLedger::Kind& kind) {
  if (kind.is_data) {
    return lanes_[home]->CanShare(Lane::FlowKind::kByTemplate) &&
           workers_[home]->Done() >= kind.known_from && !HaveReloaded();
  }
  const bool is_sflow = protocol == kSFlowProtocol;
  return lanes_[home]->CanShare(is_sflow ? Lane::FlowKind::kSampled : Lane::FlowKind::kFixed) &&
         StandsAlone(protocol, packet.Payload());
}

bool Lanes::HaveReloaded() {
  std::uint64_t reloads = 0;
  for (const auto& lane : lanes_) reloads += lane->Reloads();
  if (reloads == std::exchange(reloads_, reloads)) return false;
  ledger_.NoteReload();
  return true;
}

// The lane that has least to do, where that is clearly less than the exporter's own has.
std::size_t Lanes::LaneToHelp(std::size_t home, bool by_template) const {
  constexpr std::size_t kBehind = 2;  // batches
  const std::size_t waiting = workers_[home]->Waiting();
  if (waiting < kBehind || !workers_[home]->HasRoomForNumbers()) return home;
  const auto least =
      std::ranges::min_element(workers_, {}, [](const auto& worker) { return worker->Waiting(); });
  const auto helper = static_cast<std::size_t>(least - workers_.begin());
  if ((*least)->Waiting() + kBehind > waiting || !(*least)->HasRoomForOthers() ||
      lanes_[helper]->Reloads() != lanes_[home]->Reloads() ||
      (by_template && !lanes_[helper]->KnowsAll())) {
    return home;
  }
  return helper;
}

// Before a lane meters what others will have from it, they are done with what they were given
// before. Lanes do not wait for each other in a circle: each waits for what was there before.
void Lanes::WaitForHelpers(std::size_t home, const IpAddress& exporter) {
  using namespace std::chrono_literals;
  const auto lent = lent_.extract(exporter);
  if (lent.empty()) return;
  std::vector<std::pair<const LaneWorker*, std::uint64_t>> awaited;
  for (std::size_t i = 0; i < workers_.size(); ++i) {
    const std::uint64_t batch = lent.mapped()[i];
    if (batch <= workers_[i]->Done()) continue;
    if (batch == workers_[i]->Gathering()) workers_[i]->Push();
    awaited.emplace_back(workers_[i].get(), batch);
  }
  if (awaited.empty()) return;
  workers_[home]->Run([this, awaited](Lane& /*lane*/) {
    for (const auto& [worker, batch] : awaited) {
      while (worker->Done() < batch && !ended_) std::this_thread::sleep_for(50us);
    }
  });
}

void Lanes::Take(const IID& protocol, const UdpPacket& packet) {
  const std::size_t lane = LaneOf(packet);
  if (!workers_.empty()) return Hand(lane, protocol, packet);
  ++taken_[lane];
  lanes_[lane]->Handle(protocol, packet);
  for (const auto& each : lanes_) {
    if (each->mailbox().HasMail()) each->TakeMessages();
  }
}

void Lanes::Hand(std::size_t home, const IID& protocol, const UdpPacket& packet) {
  const TemplateLedger::Kind kind = LookUp(home, protocol, packet);
  std::size_t at = LaneToHelp(home, kind.is_data);
  if (at != home && !CanShare(home, protocol, packet, kind)) at = home;
  ++taken_[at];
  if (kind.tells) WaitForHelpers(home, ExporterOf(packet));
  if (at == home) return workers_[home]->Take(protocol, packet, Portion::kAll, kind.tells);
  workers_[at]->Take(protocol, packet, Portion::kRecords);
  if (kind.is_data) {
    auto& lent = lent_[packet.source.address];
    lent.resize(workers_.size());
    lent[at] = workers_[at]->Gathering();
  }
  workers_[home]->Take(protocol, packet, Portion::kNumbers);
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

void Lanes::ShowFlows() {
  for (const auto& lane : lanes_) lane->ShowFlows();
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
