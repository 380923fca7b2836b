// What one sample becomes: the host calls of the sFlow meter.

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/sflow_keys.h"
#include "metering/common_updates.h"
#include "sflow/sflow_meter.h"

namespace {

using namespace flow;  // NOLINT(google-build-using-namespace)

// The record keeps the fields of the flow sample before a counters sample or a skipped one;
// metering those again would count that flow twice. Later fragments carry no ports.
bool IsMetered(const _SFSample& sample) {
  const bool is_flow_sample =
      sample.sampleType == kSFFlowSample || sample.sampleType == kSFExpandedFlowSample;
  return is_flow_sample && sample.decodeOK != 0 && sample.srcIP.type == kSFAddressIPv4 &&
         sample.IPFragmentOffset == 0;
}

}  // namespace

struct CPISFlowMeter::Packet : Metered {
  Packet(IOmbrelStatsEngine* to, const _SFSample& from, const HomeNetworks& home)
      : Metered{.engine = to,
                .bytes = static_cast<std::uint32_t>(from.sampledPacketSize * from.meanSkipCount),
                .packets = from.meanSkipCount},
        sample(from),
        agent(from.agent.ToHostIPv4()),
        source(from.srcIP.ToHostIPv4()),
        destination(from.dstIP.ToHostIPv4()),
        ports{from.srcPort, from.dstPort},
        agent_key(MakeIpv4Key(agent)),
        source_key(MakeIpv4Key(source)),
        destination_key(MakeIpv4Key(destination)) {
    Classify(home.Contains(source), home.Contains(destination));
  }

  const _SFSample& sample;
  std::uint32_t agent;
  std::uint32_t source;
  std::uint32_t destination;
  Ports ports;
  Ipv4Key agent_key;
  Ipv4Key source_key;
  Ipv4Key destination_key;
};

void CPISFlowMeter::MeterSFlow(const _SFSample& sample) {
  engine_->MarkRecord();
  if (!IsMetered(sample)) return;
  const Packet packet(engine_, sample, home_);
  if (policy_.fMeterNetflowSources) MeterExporter(packet);
  if (!PassesFilters(packet)) return;
  UpdateTotals(packet, static_cast<std::uint8_t>(sample.IPProtocol));
  if (policy_.fMeterHosts) {
    UpdateIpv4Hosts(packet, packet.source_key.text, packet.destination_key.text);
  }
  if (policy_.fMeterApplications) MeterApplication(packet);
  if (policy_.fMeterNetflowInterfaces) MeterInterfaces(packet);
  MeterSession(packet);
  if (sample.IPProtocol == kTcp) MeterTcp(packet);
  if (policy_.fMeterVLAN) MeterVlans(packet);
  if (policy_.fMeterMAC) MeterMacs(packet);
}

void CPISFlowMeter::MeterExporter(const Packet& packet) {
  engine_->UpdateCounter3(COUNTERID_FLOWGEN, kIpv4KeyLength, packet.agent_key.text,
                          exporters::kExportBytes, datagram_length_, exporters::kRecords, 1,
                          exporters::kBytes, packet.bytes);
  datagram_length_ = 0;  // the other samples of the datagram add nothing
}

bool CPISFlowMeter::PassesFilters(const Packet& packet) const {
  const _SFSample& sample = packet.sample;
  const InterfaceFilter& interfaces = policy_.interface_filter;
  const HostFilter& hosts = policy_.host_filter;
  return (!interfaces.Active() ||
          interfaces.Passes(packet.agent, sample.inputPort, sample.outputPort)) &&
         (!hosts.Active() || hosts.Passes(packet.source, packet.destination));
}

void CPISFlowMeter::MeterApplication(const Packet& packet) {
  const std::uint32_t protocol = packet.sample.IPProtocol;
  if (protocol != kTcp && protocol != kUdp) return UpdateProtocolApplication(packet, protocol);
  if (policy_.fMeterBothPorts) {
    UpdateServicePorts(engine_, packet.ports, apps::kBytes, packet.bytes);
  } else {
    UpdateSmallerPort(packet, packet.ports);
  }
}

void CPISFlowMeter::MeterInterfaces(const Packet& packet) {
  MakeIntfKey(packet.agent_key, packet.sample.inputPort, key_);
  UpdateInterface(packet, key_, interfaces::kReceived);
  MakeIntfKey(packet.agent_key, packet.sample.outputPort, key_);
  UpdateInterface(packet, key_, interfaces::kTransmitted);
}

void CPISFlowMeter::MeterSession(const Packet& packet) {
  const bool reverse = MakeFlowKey(packet) == FLOW_DIR_REVERSE;
  engine_->UpdateCounter(COUNTERID_FLOWS, key_,
                         reverse ? flows::kReverseBytes : flows::kForwardBytes, packet.bytes);
  engine_->UpdateCounter(COUNTERID_FLOWS, key_,
                         reverse ? flows::kReversePackets : flows::kForwardPackets, packet.packets);
  // Forward in both cases: volumes of the halves are not told apart here.
  engine_->UpdateFlowVolume(key_, packet.bytes, 0, packet.packets, 0);
}

FLOW_DIR_T CPISFlowMeter::MakeFlowKey(const Packet& packet) {
  const _SFSample& sample = packet.sample;
  const SessionKeyRules rules = {
      .merge = {policy_.fMergeHTTP, policy_.fMergeHTTPS, policy_.fMergeDNS},
      .merge_sources = policy_.fMergeMultipleSources};
  const Conversation flow = {
      static_cast<std::uint8_t>(sample.IPProtocol),
      {packet.source_key.text, static_cast<std::uint16_t>(sample.srcPort), sample.inputPort},
      {packet.destination_key.text, static_cast<std::uint16_t>(sample.dstPort), sample.outputPort},
      packet.agent_key};
  return policy_.fMatchBiDirectionalFlows
             ? sflow::MakeSessionKey_Bi(rules, flow, packet.source, packet.destination, key_)
             : sflow::MakeSessionKey_Uni(rules, flow, key_);
}

void CPISFlowMeter::MeterTcp(const Packet& packet) {
  const std::uint32_t flags = packet.sample.TCPFlags;
  if ((flags & kTcpSynOrRst) != 0) engine_->CloseFlow(COUNTERID_FLOWS, key_);
  if ((flags & kTcpSynAck) != kTcpSynAck) return;
  if (policy_.fMeterTCPConnections) {
    UpdateHostConnections(engine_, packet.source_key.text, packet.destination_key.text);
  }
  if (policy_.fMeterAppConnections) {
    UpdateServicePorts(engine_, packet.ports, apps::kConnections, 1);
  }
}

void CPISFlowMeter::MeterVlans(const Packet& packet) {
  const auto meter_vlan = [&](std::uint32_t id, int direction_meter) {
    MakeVlanKey(id, key_);
    engine_->UpdateCounter(COUNTERID_VLAN, key_, vlan::kBytes, packet.bytes);
    engine_->UpdateCounter(COUNTERID_VLAN, key_, direction_meter, packet.bytes);
  };
  meter_vlan(packet.sample.in_vlan, vlan::kBytesOnInput);
  meter_vlan(packet.sample.out_vlan, vlan::kBytesOnOutput);
}

void CPISFlowMeter::MeterMacs(const Packet& packet) {
  char* const source = key_;
  char* const arrow = FormatMAC(packet.sample.ethernet_src, source);
  char* const destination = arrow + kMacPairArrowLength;
  FormatMAC(packet.sample.ethernet_dst, destination);
  engine_->UpdateCounter(COUNTERID_MAC, source, mac::kBytesAsSource, packet.bytes);
  engine_->UpdateCounter(COUNTERID_MAC, destination, mac::kBytesAsDestination, packet.bytes);
  std::memcpy(arrow, kMacPairArrow, kMacPairArrowLength);  // joins the two texts
  engine_->UpdateCounterKeyLen(COUNTERID_MACPAIR, kMacPairKeyLength, key_, totals::kBytes,
                               packet.bytes);
}
