// SPDX-License-Identifier: Apache-2.0
// A lane: one instance of every handler and meter, with a store of its own for what they count.
//
// A lane is used by one thread at a time and shares nothing with others but its mailbox.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/base/memory_budget.h"
#include "host/base/timestamp.h"
#include "host/border/component_catalog.h"
#include "host/border/packet_context.h"
#include "host/border/site.h"
#include "host/border/trace_engine.h"
#include "host/capture/udp_packet.h"
#include "host/engine/stats_engine.h"
#include "host/intake/channel_hub.h"
#include "host/intake/dropped_numbers.h"
#include "host/intake/exporter_table.h"
#include "host/intake/handover.h"
#include "host/intake/meters.h"
#include "host/intake/packet_batch.h"

namespace flow::host {

// What lanes are made of; all of it outlives them.
struct LaneParts {
  IOmbrelComponentPackage& package;
  std::span<const ComponentDescription> components;
  std::span<const GroupInfo> groups;
  const SiteSettings& site_settings;
  ChannelHub& channels;
  Console& console;
  CallTrace* trace = nullptr;  // may be null
  // Told of each exporter by whose templates records are decoded, in a lane's thread; may be empty.
  std::function<void(const Endpoint& exporter)> on_used = {};
  Handover::OnRate on_rate = {};  // likewise, of what tells the rates of exporters
  bool notes_numbers = false;     // which sequence numbers came of each stream
  bool has_others = false;        // lanes beside this one, which learn what it learns
};

// What a lane has counted over some time.
struct Harvest {
  std::unique_ptr<StatsStore> store;
  ExporterTable exporters;
  PortDrops dropped_unseen;  // datagrams that found a full queue, and whose numbers nobody knows
};

// Flows that a lane hands out before it is asked, so that it does not hold too many.
struct EarlyFlows {
  FlowBatch flows;
  Timestamp time = 0;        // of the last datagram
  bool has_netflow = false;  // some may be of NetFlow
};

class Lane final : private ChannelSink {
 public:
  // Makes the components of lane number (from 1) and attaches them. HostError when one refuses.
  Lane(const LaneParts& parts, int number);
  ~Lane() override = default;
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;

  // Meter takes a datagram to its protocol's handler and meters. Enter, next, has the accounts take
  // it and does what is due in the lane, which is nobody's fault: the messages that wait, flows to
  // hand out, keys to let go, meters to replace. Handle is both.
  void Meter(const IID& protocol, const UdpPacket& packet, Portion portion = Portion::kAll);
  void Enter(const IID& protocol, const UdpPacket& packet);
  void Handle(const IID& protocol, const UdpPacket& packet, Portion portion = Portion::kAll) {
    Meter(protocol, packet, portion);
    Enter(protocol, packet);
  }

  // HoldBack counts a datagram that is not to be metered, for what it would take of time or memory.
  void HoldBack(const UdpPacket& packet, Portion portion = Portion::kAll);

  // NoteNumbers takes a datagram's numbers, in their order, where another lane meters its records.
  void NoteNumbers(const UdpPacket& packet);

  // Whether others may meter some of its exporters' datagrams: not before a flow of that kind was
  // metered here, and not where a flow has the text that was told last. Any thread may ask.
  enum class FlowKind : std::uint8_t { kFixed, kSampled, kByTemplate };
  [[nodiscard]] bool CanShare(FlowKind kind) const {
    return has_shown_[static_cast<std::size_t>(kind)] && !needs_order_ &&
           (kind != FlowKind::kByTemplate || KnowsAll());
  }
  // Whether its meters know all templates and rates that were told, but for what policies have: not
  // once something was let go for want of room. Any thread.
  [[nodiscard]] bool KnowsAll() const { return knows_all_ && !mailbox_.HasLost(); }
  // How often its meters have read policies again, as TellReloads found last. Any thread.
  [[nodiscard]] std::uint64_t Reloads() const { return reloads_told_; }
  void TellReloads();

  // NoteDropped counts datagrams that never came this far.
  void NoteDropped(const DroppedNumbers& dropped);

  // TakeMessages gives the meters the messages that wait in the mailbox.
  void TakeMessages();
  Mailbox& mailbox() { return mailbox_; }

  // Reap hands out what was counted since the last harvest; counting goes on from zero. A datagram
  // that the lane came to rest in counts as far as it was metered.
  Harvest Reap();

  // HandOutFlows has the lane hand out its flows, in its thread, whenever it holds more than so
  // many. Those that go on have another part afterwards.
  using FlowSink = std::function<void(const Lane& lane, EarlyFlows flows)>;
  void HandOutFlows(std::size_t most, FlowSink sink) {
    most_flows_ = most;
    flow_sink_ = std::move(sink);
  }

  // ShowFlows is for a run that needs flows no other way than as reports show them.
  void ShowFlows() { engine_.ShowFlows(); }

  // From 1.
  [[nodiscard]] int number() const { return number_; }
  // AskRest has the lane's thread call rest in the middle of a datagram; see StatsEngine.
  void AskRest(std::function<void()> rest) { engine_.AskRest(std::move(rest)); }

  // WatchPolicies has the meters that look at their policy from time to time take note of it: they
  // know a newer file by the one that they met at their first look.
  void WatchPolicies(Timestamp now);

  // LookAtPolicies has them look now, and says of each meter with a policy what came of it.
  std::vector<std::string> LookAtPolicies(Timestamp now);

  // ReplaceMeters has fresh components go on with what is kept of what the old ones knew: no record
  // is lost, counted twice or counted at another rate. They read their policies, which must be fit.
  void ReplaceMeters(Timestamp now);
  // Where the policies were edited, the meters are replaced only once somebody has looked at them;
  // any thread may ask whether that is wanted.
  [[nodiscard]] bool WaitsForPolicies() const { return waits_for_policies_; }

  // Records metered so far; any thread may ask.
  [[nodiscard]] std::uint64_t Records() const { return records_.load(std::memory_order_relaxed); }

 private:
  using Component = Meters::Component;

  Refusal Claim(const IID& protocol, const UdpPacket& packet);
  Refusal Count(Component& component, const UdpPacket& packet);
  void Knock(Component& component, Timestamp now);
  void Note(const UdpPacket& packet, std::uint64_t records, Refusal refusal);
  void NoteShown(std::span<const std::uint8_t> datagram);
  void NoteForgotten();
  void HandOutFlowsNow(Timestamp now);
  void LookAtMemory();
  void LookAtMeters(Timestamp now);
  void TeachFreshMeters(Timestamp now);
  void TellRate(const TemplateOwner& owner, std::uint16_t id,
                std::span<const std::uint8_t> datagram);
  void KeepLessons(const Endpoint& exporter, std::span<const std::uint8_t> datagram);
  [[nodiscard]] Handover::Scope ScopeOfTemplates() const;
  void LearnFrom(const ChannelMessage& message);
  bool IsHeldBack(const UdpPacket& packet);
  void NoteGrowth(const UdpPacket& packet);
  void Post(const GUID& channel, const CLSID& sender, std::span<std::uint8_t> message) override;

  LaneParts parts_;
  int number_;
  std::span<const GroupInfo> groups_;
  ChannelHub& channels_;
  std::function<void(const Endpoint&)> on_used_;
  Mailbox mailbox_;
  CallTrace* trace_;
  std::unique_ptr<StatsStore> store_;
  ExporterTable exporters_;
  PortDrops dropped_unseen_;
  StatsEngine engine_;
  std::optional<TraceEngine> trace_engine_;
  PacketContext packet_;
  std::size_t since_look_ = 0;  // bytes of datagrams, at the memory
  bool takes_shims_ = false;    // the meters take a forwarder's shim off
  std::unique_ptr<Meters> meters_;
  Handover handover_{[this](const TemplateOwner& owner) { return exporters_.RecordsBy(owner); }};
  bool replaces_meters_ = Shares().plugin != MemoryShares::kAll;
  bool keeps_lessons_ = replaces_meters_ || parts_.has_others;
  std::uint64_t reloads_ = 0;  // of policies, when rates were kept last
  // How a meter took templates when it last posted some, and after how many reloads of policies.
  struct PostedAs {
    Handover::Scope scope;
    std::uint64_t reloads;
  };
  std::optional<PostedAs> posted_as_;
  // Bytes at which the meters are replaced; more where what is worth keeping fills them.
  std::size_t most_learnt_ = Shares().plugin;
  std::atomic<bool> waits_for_policies_ = false;
  // What exporters without a record have made the meters keep, and until when they are held back.
  struct Growth {
    std::size_t bytes = 0;
    Timestamp held_until = 0;
  };
  absl::flat_hash_map<Endpoint, Growth> growth_;
  const UdpPacket* at_work_ = nullptr;  // a datagram that is being metered
  std::uint64_t records_before_ = 0;    // it
  std::size_t learnt_before_ = 0;
  Portion portion_ = Portion::kAll;
  Refusal refusal_ = Refusal::kNone;  // of the one that was metered last
  std::atomic<bool> needs_order_ = false;
  std::array<std::atomic<bool>, 3> has_shown_{};  // flows of each kind that was metered
  std::atomic<bool> knows_all_ = true;
  std::atomic<std::uint64_t> reloads_told_ = 0;
  std::uint64_t reloads_noted_ = 0;  // of the meters at hand
  std::atomic<std::uint64_t> records_ = 0;
  std::size_t most_flows_ = std::numeric_limits<std::size_t>::max();
  FlowSink flow_sink_;
  bool has_netflow_ = false;
};

}  // namespace flow::host
