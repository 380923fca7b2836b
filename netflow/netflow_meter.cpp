// SPDX-License-Identifier: Apache-2.0
// The meter as the host sees it, and the intake of a datagram.

#include "netflow/netflow_meter.h"

#include <cstring>
#include <optional>

#include "netflow/netflow_handler.h"
#include "plugin/site_log.h"

using flow::Log;

namespace {

constexpr std::size_t kShortestPacket = sizeof(nf5_header);

// RemoveShim takes a forwarder's shim off the packet and puts the exporter that it names into the
// IPv4 header, in place, so that everybody who looks at the datagram sees that exporter.
void RemoveShim(std::uint8_t* ip_layer, std::span<const std::uint8_t>* packet) {
  forwarding_shim shim;
  std::memcpy(&shim, packet->data(), sizeof(shim));
  if (std::memcmp(shim.begin, "OMBR", sizeof(shim.begin)) != 0 ||
      std::memcmp(shim.end, "LNSM", sizeof(shim.end)) != 0) {
    return;
  }
  std::memcpy(ip_layer + offsetof(ip_header, source), &shim.exporter, sizeof(shim.exporter));
  *packet = packet->subspan(sizeof(shim));
}

// The bytes of a layer, none when the host does not give them.
std::span<const std::uint8_t> BufferOf(IOmbrelProtData* layer) {
  const std::uint8_t* bytes = nullptr;
  std::uint32_t length = 0;
  layer->GetBuffer(&bytes, &length);
  return bytes == nullptr ? std::span<const std::uint8_t>()
                          : std::span<const std::uint8_t>(bytes, length);
}

// The IPv4 layer of the packet that carries a datagram, empty when there is none.
std::span<const std::uint8_t> IpLayerOf(IOmbrelProtData* data) {
  IOmbrelParseContext* context = nullptr;
  data->GetParseContext(&context);
  if (context == nullptr) return {};
  IOmbrelProtData* ip = nullptr;
  context->GetProtData(UPID_IP, &ip);
  if (ip == nullptr) return {};
  const auto layer = BufferOf(ip);
  return layer.size() < sizeof(ip_header) ? std::span<const std::uint8_t>() : layer;
}

// The observation domain that the header of a v9 packet or an IPFIX message names. What a shim has
// left may be shorter than a header.
std::optional<std::uint32_t> DomainOf(std::span<const std::uint8_t> packet) {
  const std::uint16_t version = LoadBe16(packet.data());
  const bool is_v9 = version == flow::kVersionNetflow9;
  if (!is_v9 && version != flow::kVersionIpfix) return std::nullopt;
  const std::size_t at =
      is_v9 ? offsetof(nf9_header, source_id) : offsetof(ipfix_header, observation_domain);
  if (packet.size() < at + sizeof(be32)) return std::nullopt;
  return LoadBe32(&packet[at]);
}

}  // namespace

Status CPINetflowMeter::AttachSite(IOmbrelContainer* site) {
  KeepSite(site);
  if (!policy_.LoadFromHost()) return kStatusFailed;
  Log(site, kLogInformation, "Attached site to Netflow Counter Plugin");
  return kStatusOk;
}

Status CPINetflowMeter::GetAttachmentProtID(IID* protocol) {
  *protocol = flow::kNetflowProtocol;
  return kStatusOk;
}

Status CPINetflowMeter::IsFlowCounter(bool* isFlow) {
  *isFlow = true;
  return kStatusOk;
}

Status CPINetflowMeter::Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) {
  host_.engine = engine;
  const Bytes ip_layer = IpLayerOf(data);
  if (ip_layer.empty()) return kStatusOk;
  Bytes packet = BufferOf(data);
  if (packet.size() < kShortestPacket) {
    return Reject("Incorrect or short Netflow  Header \n");
  }
  if (policy_.Settings().fEnableShimTunnel) {
    RemoveShim(const_cast<std::uint8_t*>(ip_layer.data()), &packet);
  }
  ++datagrams_counted_;
  DoPeriodicWork();
  flow::ExportSource source(ip_layer);
  if (policy_.Settings().fTemplatesPerDomain) source.domain = DomainOf(packet);
  return Decode({source, packet});
}

Status CPINetflowMeter::Reject(const char* reason) {
  last_error_ = reason;
  return kStatusFailed;
}

void CPINetflowMeter::DoPeriodicWork() {
  std::uint64_t now = 0;
  host_.engine->GetCurrentTime(&now);
  template_sets_.DumpWhenDue(now);
  policy_.KeepUpToDate(now);
}

Status CPINetflowMeter::Decode(const Datagram& datagram) {
  context_.CurrentExportVersion = LoadBe16(datagram.packet.data());
  context_.FirstSwitchedSeen = 0;
  switch (context_.CurrentExportVersion) {
    case flow::kVersionNetflow1:
      return Process_v1(datagram);
    case flow::kVersionNetflow5:
      return Process_v5(datagram);
    case flow::kVersionNetflow9:
      return Process_v9(datagram);
    case flow::kVersionIpfix:
      return Process_v10(datagram);
    default:
      return Reject("Expecting Netflow Version 5 9 10 packet\n");
  }
}

void CPINetflowMeter::CountExportVolume(const Datagram& datagram) {
  if (!policy_.Settings().fMeterNetflowSources) return;
  host_.engine->UpdateCounterKeyLen(COUNTERID_FLOWGEN, flow::kIpv4KeyLength,
                                    datagram.source.address_key.text, flow::exporters::kExportBytes,
                                    datagram.packet.size());
}

Status CPINetflowMeter::OnChannelMessage(const IID& channel, unsigned int length, void* data) {
  if (data == nullptr) return kStatusOk;
  GiveUp(
      template_sets_.OnChannelMessage(channel, {static_cast<const std::uint8_t*>(data), length}));
  return kStatusOk;
}

void CPINetflowMeter::DebugDumpSamplingRates() { rates_.DebugDumpSamplingRates(); }
