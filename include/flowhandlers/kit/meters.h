// SPDX-License-Identifier: Apache-2.0
// One instance of every handler and meter at work, and their ending.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flowhandlers/identifiers.h"
#include "flowhandlers/kit/datagram.h"
#include "flowhandlers/kit/plugin.h"
#include "flowhandlers/kit/site.h"

namespace flow::kit {

// What exporters send.
enum class Protocol : std::uint8_t { kNetflow, kSFlow };  // NetFlow is IPFIX as well

// The ports on which handlers expect it first.
inline constexpr std::uint16_t kNetflowPort = 2055;
inline constexpr std::uint16_t kSFlowPort = 6343;

// The handlers and meters of one thread. Several work in one process, each with a site and an
// engine of its own; Attach and the destructor are not for two threads at once.
class Meters {
 public:
  Meters() = default;
  Meters(const Meters&) = delete;
  Meters& operator=(const Meters&) = delete;
  ~Meters() { Detach(); }

  // Attach makes the components and attaches them to the site, which outlives them, as the plug-in
  // does. False when one refuses: the site's log says why, most often a policy.
  bool Attach(const Plugin& plugin, Site& site) {
    site_ = &site;
    return Attach(plugin, CLSID_PI_NETFLOW, CLSID_PI_NETFLOWMETER, &netflow_) &&
           Attach(plugin, CLSID_PI_SFLOW, CLSID_PI_SFLOWMETER, &sflow_);
  }

  // Handle meters a datagram into an engine. False when it is none of the protocol.
  bool Handle(Protocol protocol, Datagram& datagram, IOmbrelStatsEngine& engine) {
    Pair& pair = protocol == Protocol::kNetflow ? netflow_ : sflow_;
    DISPOSITION_CODE_T disposition = 0;
    const Status claim = pair.handler->GenerateParse(datagram.Payload(), &disposition, &datagram);
    if (claim != kStatusOk || disposition != kDispositionClaimed) return false;
    return pair.meter->Count(&engine, datagram.Payload()) != kStatusFailed;
  }

  // Deliver gives the meters a message of another Meters, from its engine's OnMessage, or one that
  // was kept. It is not called while these meters are inside Handle.
  void Deliver(const GUID& channel, void* data, std::uint32_t length) {
    if (netflow_.listener) netflow_.listener->OnChannelMessage(channel, length, data);
  }

  // Detach ends the components.
  void Detach() {
    netflow_ = Detached(netflow_);
    sflow_ = Detached(sflow_);
  }

 private:
  // What handles one protocol.
  struct Pair {
    InterfacePtr<IOmbrelProtHandler> handler;
    InterfacePtr<IOmbrelSimpleCounter> meter;
    InterfacePtr<IOmbrelChannelListener> listener;
    InterfacePtr<IOmbrelPlugin> plugins[2];
  };

  bool Attach(const Plugin& plugin, const CLSID& handler, const CLSID& meter, Pair* pair) {
    const InterfacePtr<IArboUnknown> objects[2] = {plugin.Create(handler), plugin.Create(meter)};
    if (!objects[0] || !objects[1]) return false;
    for (int i = 0; i < 2; ++i) {
      InterfacePtr<IOmbrelPlugin> attached = Query<IOmbrelPlugin>(*objects[i], IID_IOmbrelPlugin);
      if (!attached || attached->AttachSite(site_) != kStatusOk) return false;
      pair->plugins[i] = std::move(attached);
    }
    pair->handler = Query<IOmbrelProtHandler>(*objects[0], IID_IOmbrelProtHandler);
    pair->meter = Query<IOmbrelSimpleCounter>(*objects[1], IID_IOmbrelSimpleCounter);
    pair->listener = Query<IOmbrelChannelListener>(*objects[1], IID_IOmbrelChannelListener);
    return pair->handler && pair->meter;
  }

  // A component forgets its site without giving its reference back.
  Pair Detached(Pair& pair) {
    for (const InterfacePtr<IOmbrelPlugin>& plugin : pair.plugins) {
      if (!plugin) continue;
      plugin->DetachSite();
      site_->Release();
    }
    return {};
  }

  Site* site_ = nullptr;
  Pair netflow_;
  Pair sflow_;
};

}  // namespace flow::kit
