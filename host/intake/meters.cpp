// SPDX-License-Identifier: Apache-2.0
#include "host/intake/meters.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "host/base/error.h"
#include "host/border/call_trace.h"
#include "host/border/deaf_engine.h"
#include "host/border/packet_context.h"
#include "host/capture/made_headers.h"
#include "host/intake/lane.h"

namespace flow::host {
namespace {

// Components share their package, which counts references without a lock.
std::mutex making;

UdpPacket MadePacket(const Handover::Lesson& lesson, Timestamp now,
                     std::vector<std::uint8_t>* space) {
  UdpPacket packet;
  packet.time = now;
  packet.source = lesson.exporter;
  packet.payload_length = lesson.datagram.size();
  space->resize(kMadeHeaders);
  PutMadeHeaders(packet, space->data());
  space->insert(space->end(), lesson.datagram.begin(), lesson.datagram.end());
  packet.ip = *space;
  packet.udp_offset = kMadeUdpOffset;
  return packet;
}

}  // namespace

Meters::Meters(const LaneParts& parts, int number, bool is_fresh) {
  const HeapScope scope(&account_);
  for (const ComponentDescription& description : parts.components) {
    if (description.handler || description.meter) Attach(parts, description, number, is_fresh);
  }
  held_at_start_ = account_.Held();
}

Meters::~Meters() {
  const HeapScope scope(&account_);
  const std::lock_guard lock(making);
  for (Component& component : components_) component.plugin->DetachSite();
  components_.clear();
}

void Meters::Attach(const LaneParts& parts, const ComponentDescription& description, int number,
                    bool is_fresh) {
  Component component;
  component.name = fmt::format("{} {}", description.name, number);
  component.protocol =
      description.handler ? description.handler->protocol : description.meter->protocol;
  component.site = std::make_unique<Site>(parts.site_settings, parts.console, component.name,
                                          number, parts.trace);
  component.site->SpeakOfErrorsAlone(is_fresh);
  {
    const std::lock_guard lock(making);
    const InterfacePtr<IArboUnknown> object = NewComponent(parts.package, description.clsid);
    component.plugin = Query<IOmbrelPlugin>(*object, IID_IOmbrelPlugin);
    component.handler = Query<IOmbrelProtHandler>(*object, IID_IOmbrelProtHandler);
    component.meter = Query<IOmbrelSimpleCounter>(*object, IID_IOmbrelSimpleCounter);
    component.listener = Query<IOmbrelChannelListener>(*object, IID_IOmbrelChannelListener);
  }
  if (!component.plugin) {
    throw HostError(fmt::format("component {} cannot be attached", component.name));
  }
  if (parts.trace != nullptr) parts.trace->Enter(fmt::format("{} AttachSite", component.name));
  const Status status = component.plugin->AttachSite(component.site.get());
  if (parts.trace != nullptr) parts.trace->Leave(status);
  if (status != kStatusOk) {
    throw HostError(fmt::format("{} refused to start (0x{:08X}); what it logged stands above",
                                component.name, status));
  }
  components_.push_back(std::move(component));
}

bool Meters::HavePoliciesInForce() const {
  return std::ranges::all_of(components_, [](const Component& component) {
    const PolicyFile& policy = component.site->policy();
    return policy.path().empty() || policy.IsInForce();
  });
}

std::uint64_t Meters::Reloads() const {
  std::uint64_t reloads = 0;
  for (const Component& component : components_) reloads += component.site->policy().reloads();
  return reloads;
}

void Meters::Learn(const Handover& handover, Timestamp now) {
  handover.Teach([&](const Handover::Lesson& lesson) { Take(lesson, now); });
  for (Component& component : components_) component.site->SpeakOfErrorsAlone(false);
}

void Meters::LearnFrom(const Handover::Lesson& lesson, Timestamp now) {
  for (Component& component : components_) component.site->SpeakOfErrorsAlone(true);
  Take(lesson, now);
  for (Component& component : components_) component.site->SpeakOfErrorsAlone(false);
}

// Datagrams are counted by an engine that does not count. What the meters say meanwhile has been
// said before.
void Meters::Take(const Handover::Lesson& lesson, Timestamp now) {
  DeafEngine engine(now);
  PacketContext context(nullptr);
  std::vector<std::uint8_t> space;
  if (lesson.message == nullptr) context.Set(MadePacket(lesson, now, &space));
  const HeapScope scope(&account_);
  for (Component& component : components_) {
    if (lesson.message != nullptr && component.listener) {
      std::vector<std::uint8_t>& bytes = *lesson.message->bytes;
      component.listener->OnChannelMessage(lesson.message->channel,
                                           static_cast<unsigned>(bytes.size()), bytes.data());
    }
    const bool counts = component.meter && component.protocol == kNetflowProtocol;
    if (lesson.message == nullptr && counts) component.meter->Count(&engine, context.Payload());
  }
}

}  // namespace flow::host
