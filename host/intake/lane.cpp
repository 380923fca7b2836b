// SPDX-License-Identifier: Apache-2.0
#include "host/intake/lane.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/heap_account.h"
#include "host/base/memory_budget.h"
#include "host/border/call_trace.h"
#include "host/capture/made_headers.h"

namespace flow::host {
namespace {

// Why a meter did not meter a datagram. Its status alone does not say: for v9 and IPFIX 1 is the
// usual result, and an IPFIX message that is cut short or an unknown sFlow version is passed over.
Refusal ReasonFor(Status status, const IID& protocol, std::span<const std::uint8_t> datagram) {
  const ExportVersion version = VersionOf(datagram);
  if (!version.IsKnown()) return Refusal::kUnknownVersion;
  if (protocol == (version.sflow ? kNetflowProtocol : kSFlowProtocol)) {
    return Refusal::kOtherProtocol;
  }
  if (!version.sflow && IsCutShort(datagram)) return Refusal::kCutShort;
  return status == kStatusOk || version.HasTemplates() ? Refusal::kNone : Refusal::kFailed;
}

// Whose datagram the meters took it for, and the datagram: a shim that they left in front is part
// of what its sender says.
struct Seen {
  IpAddress exporter;
  std::span<const std::uint8_t> datagram;
};
Seen AsMetered(const UdpPacket& packet, const IpAddress& source) {
  if (source == IpAddress()) {
    return {HeaderSource(packet).address, packet.Payload()};
  }
  return {source, WithoutShim(packet.Payload(), source)};
}

// Meters of other lanes know nothing that an exporter tells, whether they help its own or not.
void MarkOwnNotes(ExporterTable& exporters, StatsStore* store) {
  auto& notes = store->Group(kExporterGroup).notes;
  if (notes.empty()) return;
  exporters.ForEach([&](const ExportSource& source, const ExporterCounts& counts) {
    if (counts.is_lent) return;
    const auto bytes = source.endpoint.address.bytes();
    const auto known = notes.find(fmt::format("{:02X}", fmt::join(bytes, ".")));
    if (known != notes.end()) known->second.is_own = true;
  });
}

}  // namespace

Lane::Lane(const LaneParts& parts, int number)
    : parts_(parts),
      number_(number),
      groups_(parts.groups),
      channels_(parts.channels),
      on_used_(parts.on_used),
      trace_(parts.trace),
      store_(std::make_unique<StatsStore>(groups_)),
      engine_(*store_, *this),
      packet_(parts.trace) {
  if (trace_ != nullptr) trace_engine_.emplace(engine_, *trace_);
  if (parts.notes_numbers) exporters_.NoteNumbers();
  meters_ = std::make_unique<Meters>(parts_, number_, false);
  reloads_noted_ = meters_->Reloads();
  channels_.Add(number_, mailbox_);
}

void Lane::Meter(const IID& protocol, const UdpPacket& packet, Portion portion) {
  portion_ = portion;
  if (!growth_.empty() && IsHeldBack(packet)) {
    refusal_ = Refusal::kTooDear;
    return;
  }
  packet_.Set(packet);
  engine_.SetTime(packet.time);
  engine_.SetNumber(packet.number);
  records_before_ = store_->records;
  at_work_ = &packet;
  learnt_before_ = meters_->Learnt();
  refusal_ = Claim(protocol, packet);
  if (refusal_ == Refusal::kNone) {
    for (Component& component : meters_->components()) {
      if (component.meter && component.protocol == protocol) refusal_ = Count(component, packet);
    }
  }
  at_work_ = nullptr;
}

void Lane::Enter(const IID& protocol, const UdpPacket& packet) {
  if (refusal_ == Refusal::kTooDear) return HoldBack(packet, portion_);
  const std::uint64_t records = store_->records - records_before_;
  records_.store(records_.load(std::memory_order_relaxed) + records, std::memory_order_relaxed);
  TellReloads();
  Note(packet, records, refusal_);
  has_netflow_ = has_netflow_ || protocol == kNetflowProtocol;
  if (store_->flows().size() > most_flows_) HandOutFlowsNow(packet.time);
  if (replaces_meters_ && meters_->Learnt() > learnt_before_) NoteGrowth(packet);
  if (mailbox_.HasMail()) TakeMessages();
  constexpr std::size_t kLookAfter = std::size_t{64} << 10;
  since_look_ += packet.payload_length;
  if (since_look_ < kLookAfter) return;
  LookAtMemory();
  LookAtMeters(packet.time);
}

void Lane::HandOutFlowsNow(Timestamp now) {
  engine_.Flush();
  flow_sink_(*this, {store_->TakeFlows(), now, has_netflow_});
}

void Lane::LookAtMemory() {
  since_look_ = 0;
  if (store_->Memory() <= Shares().lane_keys) return;
  engine_.Flush();
  NoteLetGo(LetGo::kKeys, store_->PruneTo(Shares().lane_keys));
}

void Lane::Note(const UdpPacket& packet, std::uint64_t records, Refusal refusal) {
  const auto [address, datagram] = AsMetered(packet, packet_.Source());
  const Endpoint exporter{address, packet.source.port};
  takes_shims_ = takes_shims_ || datagram.size() < packet.payload_length;
  const MeterWords words = engine_.TakeWords();
  if (records > words[static_cast<std::size_t>(MeterWord::kFiltered)]) NoteShown(datagram);
  exporters_.Note({exporter, packet.time, datagram, records, refusal, words,
                   packet.destination.port, portion_ != Portion::kRecords});
  if (exporters_.HasNewUser() && on_used_) on_used_(exporter);
  if (exporters_.HasStrangeRecords()) knows_all_ = false;  // by templates of the policy
  if (keeps_lessons_ && exporters_.HasLessons()) KeepLessons(exporter, datagram);
}

// Whether the flows of a kind have texts shows once there is one: that they do is noted first.
void Lane::NoteShown(std::span<const std::uint8_t> datagram) {
  if (engine_.HasFlowTexts()) needs_order_.store(true, std::memory_order_relaxed);
  const ExportVersion version = VersionOf(datagram);
  FlowKind kind = FlowKind::kFixed;
  if (version.sflow) kind = FlowKind::kSampled;
  if (version.HasTemplates()) kind = FlowKind::kByTemplate;
  auto& has_shown = has_shown_[static_cast<std::size_t>(kind)];
  if (!has_shown.load(std::memory_order_relaxed)) has_shown = true;
}

// By another policy flows may have other texts, and none has shown yet.
void Lane::TellReloads() {
  const std::uint64_t reloads = meters_->Reloads();
  if (reloads == reloads_noted_) return;
  for (auto& has_shown : has_shown_) has_shown = false;
  reloads_told_ += reloads - std::exchange(reloads_noted_, reloads);
}

void Lane::NoteForgotten() {
  if (handover_.HasForgotten() || exporters_.HasForgotten()) knows_all_ = false;
}

void Lane::HoldBack(const UdpPacket& packet, Portion portion) {
  if (VersionOf(packet.Payload()).HasTemplates()) knows_all_ = false;
  exporters_.Note({HeaderSource(packet),
                   packet.time,
                   packet.Payload(),
                   0,
                   Refusal::kTooDear,
                   {},
                   packet.destination.port,
                   portion != Portion::kRecords});
}

void Lane::NoteNumbers(const UdpPacket& packet) {
  exporters_.NoteNumbersOf({.exporter = HeaderSource(packet),
                            .time = packet.time,
                            .bytes = packet.Payload(),
                            .arrived_at = packet.destination.port});
}

// What exporters define and tell, for meters to come.
void Lane::KeepLessons(const Endpoint& exporter, std::span<const std::uint8_t> datagram) {
  if (meters_->Reloads() != std::exchange(reloads_, meters_->Reloads())) handover_.ForgetRates();
  handover_.Take(exporter, datagram, ScopeOfTemplates(),
                 [this](const TemplateOwner& owner, std::uint16_t id,
                        std::span<const std::uint8_t> told) { TellRate(owner, id, told); });
  NoteForgotten();
}

void Lane::TellRate(const TemplateOwner& owner, std::uint16_t id,
                    std::span<const std::uint8_t> datagram) {
  if (parts_.on_rate) parts_.on_rate(owner, id, datagram);
  if (parts_.has_others) channels_.Teach(number_, owner.exporter, datagram);
}

// A policy may say so, and another one later the opposite.
Handover::Scope Lane::ScopeOfTemplates() const {
  const bool is_known = posted_as_ && posted_as_->reloads == meters_->Reloads();
  return is_known ? posted_as_->scope : Handover::Scope::kDomain;
}

// Whoever makes the meters keep much and sends no record by it has its datagrams held back a while.
void Lane::NoteGrowth(const UdpPacket& packet) {
  constexpr std::size_t kPart = 16;         // of what all together may
  constexpr std::size_t kMostOfByte = 200;  // a table that grows with it is not its own
  constexpr Timestamp kHeldBack = 60 * kMicrosPerSecond;
  if (growth_.size() >= Shares().exporters) growth_.clear();
  Growth& growth = growth_[packet.source];
  growth.bytes += std::min(meters_->Learnt() - learnt_before_, packet.payload_length * kMostOfByte);
  if (growth.bytes < Shares().plugin / kPart) return;
  const auto [address, datagram] = AsMetered(packet, packet_.Source());
  const Endpoint exporter{address, packet.source.port};
  if (exporters_.RecordsBy({exporter, DomainOf(datagram)}) > 0) return;
  growth = {0, packet.time + kHeldBack};
}

bool Lane::IsHeldBack(const UdpPacket& packet) {
  const auto known = growth_.find(packet.source);
  if (known == growth_.end() || packet.time >= known->second.held_until) return false;
  NoteLetGo(LetGo::kHeldBack, 1);
  return true;
}

void Lane::LookAtMeters(Timestamp now) {
  if (meters_->Learnt() <= most_learnt_) return;
  waits_for_policies_ = !meters_->HavePoliciesInForce();
  if (!waits_for_policies_) ReplaceMeters(now);
}

void Lane::ReplaceMeters(Timestamp now) {
  waits_for_policies_ = false;
  knows_all_ = false;
  most_learnt_ = meters_->Learnt() + Shares().plugin / 4;  // where it fails
  try {
    TeachFreshMeters(now);
  } catch (const HostError& error) {
    return parts_.console.Error(fmt::format("a meter cannot be replaced: {}", error.what()));
  }
  growth_.clear();
  most_learnt_ = std::max(Shares().plugin, meters_->Learnt() + Shares().plugin / 4);
  WatchPolicies(now);
  ReturnHeap();
  NoteLetGo(LetGo::kMeters, 1);
}

void Lane::TeachFreshMeters(Timestamp now) {
  if (meters_->Reloads() != reloads_) handover_.ForgetRates();
  auto fresh = std::make_unique<Meters>(parts_, number_, true);
  fresh->Learn(handover_, now);
  reloads_ = fresh->Reloads();
  posted_as_.reset();
  TellReloads();
  meters_ = std::move(fresh);
  reloads_noted_ = reloads_;
}

void Lane::NoteDropped(const DroppedNumbers& dropped) {
  for (const DroppedNumbers::Entry& entry : dropped.entries()) {
    Endpoint exporter = entry.exporter;
    const auto bytes = dropped.BytesOf(entry);
    if (takes_shims_) exporter.address = ShimExporter(bytes).value_or(exporter.address);
    const auto datagram = takes_shims_ ? WithoutShim(bytes, exporter.address) : bytes;
    exporters_.NoteDropped(exporter, entry.time, datagram);
  }
  for (const auto& [port, datagrams] : dropped.unseen()) dropped_unseen_[port] += datagrams;
}

void Lane::TakeMessages() {
  const auto messages = mailbox_.TakeAll();
  for (const ChannelMessage& message : messages) {
    if (message.channel == kDatagrams) {
      LearnFrom(message);
      continue;
    }
    std::vector<std::uint8_t>& bytes = *message.bytes;
    if (IsTemplateChannel(message.channel)) {
      exporters_.NoteForeignTemplates(bytes, HasDomain(message.channel));
      if (keeps_lessons_) handover_.TakeMessage(message);
    }
    for (Component& component : meters_->components()) {
      if (!component.listener) continue;
      component.site->SpeakOf(nullptr);
      const HeapScope scope(&meters_->account());
      if (trace_ != nullptr) {
        trace_->Enter(fmt::format("lane {} OnChannelMessage {} {} bytes", number_,
                                  trace_->Name(message.channel), bytes.size()));
      }
      const Status status = component.listener->OnChannelMessage(
          message.channel, static_cast<unsigned>(bytes.size()), bytes.data());
      if (trace_ != nullptr) trace_->Leave(status);
    }
  }
  if (!messages.empty()) NoteForgotten();
}

void Lane::LearnFrom(const ChannelMessage& message) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  meters_->LearnFrom({message.exporter, *message.bytes, nullptr},
                     std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  if (keeps_lessons_) handover_.Take(message.exporter, *message.bytes, ScopeOfTemplates(), {});
}

void Lane::WatchPolicies(Timestamp now) {
  for (Component& component : meters_->components()) {
    if (component.site->policy().interval() > 0) Knock(component, now);
  }
}

std::vector<std::string> Lane::LookAtPolicies(Timestamp now) {
  constexpr std::uint32_t kHour = 3600;
  std::vector<std::string> told;
  for (Component& component : meters_->components()) {
    const PolicyFile& policy = component.site->policy();
    if (policy.path().empty()) continue;
    const std::uint64_t reloads = policy.reloads();
    // Once more, as a clock that was set back by as much makes it early.
    for (int look = 1; look <= 2 && policy.interval() > 0 && policy.reloads() == reloads; ++look) {
      engine_.SetAhead(static_cast<std::uint32_t>(look) * (policy.interval() + kHour));
      Knock(component, now);
    }
    if (policy.reloads() == reloads) {
      told.push_back(fmt::format("{} has not reloaded {}: {}", component.name,
                                 policy.path().string(), policy.WhyNotReloaded()));
    } else {
      told.push_back(fmt::format("{} has reloaded {}", component.name, policy.path().string()));
    }
  }
  WatchPolicies(now);  // a load begins to watch anew
  return told;
}

Harvest Lane::Reap() {
  if (at_work_ != nullptr) {
    Note(*at_work_, store_->records - records_before_, Refusal::kUnfinished);
    at_work_ = nullptr;
  }
  auto fresh = std::make_unique<StatsStore>(groups_);
  engine_.UseStore(*fresh);
  ExporterTable exporters = exporters_.Reap();
  MarkOwnNotes(exporters, store_.get());
  fresh->CopyNotes(*store_);  // told once, and true from then on
  return {std::exchange(store_, std::move(fresh)), std::move(exporters),
          std::exchange(dropped_unseen_, {})};
}

Refusal Lane::Claim(const IID& protocol, const UdpPacket& packet) {
  for (Component& component : meters_->components()) {
    if (!component.handler || !(component.protocol == protocol)) continue;
    if (trace_ != nullptr) {
      trace_->Enter(fmt::format("{} GenerateParse {} {} bytes", component.name,
                                packet.source.Text(), packet.payload_length));
    }
    DISPOSITION_CODE_T disposition = 0;
    const HeapScope scope(&meters_->account());
    const Status status =
        component.handler->GenerateParse(packet_.Payload(), &disposition, &packet_);
    if (trace_ != nullptr) trace_->Leave(status);
    if (status == kStatusOk && disposition == kDispositionClaimed) return Refusal::kNone;
  }
  return Refusal::kNotClaimed;
}

Refusal Lane::Count(Component& component, const UdpPacket& packet) {
  component.site->SpeakOf(&packet.source.address);
  const HeapScope scope(&meters_->account());
  if (trace_ == nullptr) {
    const Status status = component.meter->Count(&engine_, packet_.Payload());
    return ReasonFor(status, component.protocol, AsMetered(packet, packet_.Source()).datagram);
  }
  trace_->Enter(fmt::format("{} Count {} {} bytes at {}", component.name, packet.source.Text(),
                            packet.payload_length, packet.time / kMicrosPerSecond));
  const Status status = component.meter->Count(&*trace_engine_, packet_.Payload());
  trace_->Leave(status);
  return ReasonFor(status, component.protocol, AsMetered(packet, packet_.Source()).datagram);
}

// A datagram of no version has a meter do what is due from time to time, and nothing else.
void Lane::Knock(Component& component, Timestamp now) {
  std::array<std::uint8_t, kMadeHeaders + kShortestClaim> bytes{};
  UdpPacket packet;
  packet.time = now;
  packet.payload_length = kShortestClaim;
  PutMadeHeaders(packet, bytes.data());
  packet.ip = bytes;
  packet.udp_offset = kMadeUdpOffset;
  packet_.Set(packet);
  engine_.SetTime(now);
  if (component.meter) Count(component, packet);
  component.site->SpeakOf(nullptr);  // what it does until the next one is about nobody
}

void Lane::Post(const GUID& channel, const CLSID& /*sender*/, std::span<std::uint8_t> message) {
  if (IsTemplateChannel(channel)) {
    exporters_.NoteTemplates(message, HasDomain(channel));
    posted_as_ = {HasDomain(channel) ? Handover::Scope::kDomain : Handover::Scope::kExporter,
                  meters_->Reloads()};
  }
  channels_.Deliver(number_, channel, message);
}

}  // namespace flow::host
