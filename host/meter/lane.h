// A lane: one instance of every handler and meter, with a store of its own for what they count.
//
// A lane is used by one thread at a time and shares nothing with others but the channels.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/capture/udp_packet.h"
#include "host/component/component_catalog.h"
#include "host/component/packet_context.h"
#include "host/component/site.h"
#include "host/engine/stats_engine.h"
#include "host/engine/trace_engine.h"
#include "host/meter/channel_hub.h"
#include "host/meter/exporter_table.h"

namespace flow::host {

// What lanes are made of; all of it outlives them.
struct LaneParts {
  IOmbrelComponentPackage& package;
  std::span<const ComponentDescription> components;
  const GroupCatalog& groups;
  const SiteSettings& site_settings;
  ChannelHub& channels;
  Console& console;
  CallTrace* trace = nullptr;  // may be null
};

class Lane final : private ChannelSink {
 public:
  // Makes the components of lane number (from 1) and attaches them. HostError when one refuses.
  Lane(const LaneParts& parts, int number);
  ~Lane() override;

  // Handle takes a datagram of the protocol to that protocol's handler and meters.
  void Handle(const IID& protocol, const UdpPacket& packet);

  // Flush brings everything that was counted into the store.
  void Flush() { engine_.Flush(); }

  [[nodiscard]] const StatsStore& store() const { return store_; }
  [[nodiscard]] const ExporterTable& exporters() const { return exporters_; }

 private:
  // A component at work. The site outlives it.
  struct Component {
    std::string name;
    IID protocol{};
    std::unique_ptr<Site> site;
    InterfacePtr<IOmbrelPlugin> plugin;
    InterfacePtr<IOmbrelProtHandler> handler;
    InterfacePtr<IOmbrelSimpleCounter> meter;
    InterfacePtr<IOmbrelChannelListener> listener;
  };

  void Attach(const LaneParts& parts, const ComponentDescription& description);
  Refusal Claim(const IID& protocol, const UdpPacket& packet);
  Refusal Count(Component& component, const UdpPacket& packet);
  void Post(const GUID& channel, const CLSID& sender, std::span<std::uint8_t> message) override;

  int number_;
  ChannelHub& channels_;
  CallTrace* trace_;
  StatsStore store_;
  ExporterTable exporters_;
  StatsEngine engine_;
  std::optional<TraceEngine> trace_engine_;
  PacketContext packet_;
  std::vector<Component> components_;
};

}  // namespace flow::host
