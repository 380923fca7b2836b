// SPDX-License-Identifier: Apache-2.0
// What one sample becomes: the host calls of the sFlow meter.

#include <cstring>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/sflow_keys.h"
#include "metering/common_updates.h"
#include "metering/left_out_words.h"
#include "sflow/sflow_meter.h"

namespace {

using namespace flow;  // NOLINT(google-build-using-namespace)

bool IsFlowSample(const _SFSample& sample) {
  return sample.sampleType == kSFFlowSample || sample.sampleType == kSFExpandedFlowSample;
}

// The record keeps the fields of the flow sample before a counters sample or a skipped one;
// metering those again would count that flow twice. Later fragments carry no ports.
bool IsMetered(const _SFSample& sample, std::uint32_t last_address_type) {
  return IsFlowSample(sample) && sample.decodeOK != 0 &&
         sample.srcIP.type - 1 < last_address_type && sample.IPFragmentOffset == 0;
}

}  // namespace

struct CPISFlowMeter::Packet : Metered {
  Packet(IOmbrelStatsEngine* to, const _SFSample& from, const SFlowPolicy& policy,
         const HomeNetworks& home)
      : Metered{.engine = to,
                .bytes = std::uint64_t{from.sampledPacketSize} * from.meanSkipCount,
                .packets = from.meanSkipCount},
        sample(from),
        is_ipv6(from.srcIP.type == kSFAddressIPv6),
        ports{from.srcPort, from.dstPort} {
    source_key.Write(from.srcIP, is_ipv6);
    destination_key.Write(from.dstIP, is_ipv6);
    if (!policy.fCount64Bit) bytes = static_cast<std::uint32_t>(bytes);
    // The home networks are of IPv4.
    Classify(!is_ipv6 && home.Contains(Source()), !is_ipv6 && home.Contains(Destination()));
  }

  // These are of use where they are addresses of IPv4.
  [[nodiscard]] std::uint32_t Source() const noexcept { return sample.srcIP.ToHostIPv4(); }
  [[nodiscard]] std::uint32_t Destination() const noexcept { return sample.dstIP.ToHostIPv4(); }

  const _SFSample& sample;
  bool is_ipv6;
  Ports ports;
  SFlowHostKey source_key;       // NOLINT(cppcoreguidelines-pro-type-member-init)
  SFlowHostKey destination_key;  // NOLINT(cppcoreguidelines-pro-type-member-init)
};

void CPISFlowMeter::MeterSFlow(const _SFSample& sample) {
  engine_->MarkRecord();
  if (!has_agent_) UseAgent(sample.agent);
  if (!IsMetered(sample, policy_.fMeterIPv6Samples ? kSFAddressIPv6 : kSFAddressIPv4)) {
    return PassOver(sample);
  }
  const Packet packet(engine_, sample, policy_, home_);
  if (policy_.fMeterNetflowSources) MeterExporter(packet);
  if (policy_.HasFilters() && !PassesFilters(packet)) return TellLeftOut(left_out::kFiltered);
  UpdateTotals(packet, static_cast<std::uint8_t>(sample.IPProtocol));
  if (policy_.fMeterHosts) MeterHosts(packet);
  if (policy_.fMeterApplications) MeterApplication(packet);
  if (policy_.fMeterNetflowInterfaces) MeterInterfaces(packet);
  MeterSession(packet);
  if (sample.IPProtocol == kTcp) MeterTcp(packet);
  if (policy_.fMeterVLAN) MeterVlans(packet);
  if (policy_.fMeterMAC) MeterMacs(packet);
}

void CPISFlowMeter::UseAgent(const SFAddress& agent) {
  agent_is_ipv6_ = policy_.fMeterIPv6Samples && agent.type == kSFAddressIPv6;
  agent_ = agent_is_ipv6_ ? 0 : agent.ToHostIPv4();
  agent_key_.Write(agent, agent_is_ipv6_);
  agent_key_length_ = agent_is_ipv6_ ? kIpv6KeyLength : kIpv4KeyLength;
  std::memcpy(agent_ipv4_key_.text, agent_key_.text, sizeof(agent_ipv4_key_.text));
  MakeAgentIntfKey(agent_key_.text, agent_key_length_, 0, interface_key_);
  has_agent_ = true;
}

void CPISFlowMeter::ForgetPacket(_SFSample* sample) const {
  if (!policy_.fSkipUndecodedSamples) return;
  sample->srcIP.type = kSFAddressUnset;
  sample->dstIP.type = kSFAddressUnset;
  sample->sampledPacketSize = 0;
  sample->IPProtocol = 0;
  sample->srcPort = 0;
  sample->dstPort = 0;
  sample->TCPFlags = 0;
  sample->IPFragmentOffset = 0;
}

void CPISFlowMeter::PassOver(const _SFSample& sample) {
  if (!IsFlowSample(sample)) return TellLeftOut(left_out::kNoFlowSample);
  if (sample.decodeOK == 0 || sample.srcIP.type == kSFAddressUnset) {
    if (policy_.fSkipUndecodedSamples) MeterUndecoded(Packet(engine_, sample, policy_, home_));
    return TellLeftOut(left_out::kUndecodedSample);
  }
  const bool is_fragment = sample.IPFragmentOffset != 0;
  TellLeftOut(is_fragment ? left_out::kFragment : left_out::kIpv6Sample);
}

// A frame without addresses, such as one of ARP, has gone through an interface all the same.
void CPISFlowMeter::MeterUndecoded(const Packet& packet) {
  if (policy_.fMeterNetflowSources) MeterExporter(packet);
  if (!PassesFilters(packet)) return;
  UpdateWay(packet, kTotalBandwidth);
  if (policy_.fMeterNetflowInterfaces) MeterInterfaces(packet);
}

void CPISFlowMeter::TellLeftOut(int reason) {
  if (!policy_.fCountLeftOut) return;
  flow::TellLeftOut(engine_, static_cast<int>(agent_key_length_), agent_key_.text, reason);
}

void CPISFlowMeter::MeterExporter(const Packet& packet) {
  engine_->UpdateCounter3(COUNTERID_FLOWGEN, static_cast<int>(agent_key_length_), agent_key_.text,
                          exporters::kExportBytes, datagram_length_, exporters::kRecords, 1,
                          exporters::kBytes, packet.bytes);
  datagram_length_ = 0;  // the other samples of the datagram add nothing
}

bool CPISFlowMeter::PassesFilters(const Packet& packet) const {
  const _SFSample& sample = packet.sample;
  const InterfaceFilter& interfaces = policy_.interface_filter;
  const HostFilter& hosts = policy_.host_filter;
  if (interfaces.Active() && !interfaces.Passes(agent_, sample.inputPort, sample.outputPort)) {
    return false;
  }
  return !hosts.Active() || sample.srcIP.type != kSFAddressIPv4 ||
         hosts.Passes(packet.Source(), packet.Destination());
}

void CPISFlowMeter::MeterHosts(const Packet& packet) {
  if (packet.is_ipv6) {
    UpdateIpv6Hosts(packet, packet.source_key.text, packet.destination_key.text);
  } else {
    UpdateIpv4Hosts(packet, packet.source_key.text, packet.destination_key.text);
  }
}

void CPISFlowMeter::MeterApplication(const Packet& packet) {
  const std::uint32_t protocol = packet.sample.IPProtocol;
  if (packet.is_ipv6 && protocol == kIcmpv6) return UpdateIcmpv6(packet);
  if (protocol != kTcp && protocol != kUdp) return UpdateProtocolApplication(packet, protocol);
  if (policy_.fMeterBothPorts) {
    UpdateServicePorts(engine_, packet.ports, apps::kBytes, packet.bytes);
  } else {
    UpdateSmallerPort(packet, packet.ports);
  }
}

void CPISFlowMeter::MeterInterfaces(const Packet& packet) {
  const auto meter_interface = [&](std::uint32_t ifindex, int side_meter) {
    // The agent's part is there.
    OmbrelAPI::Long2Hex(ifindex, interface_key_ + agent_key_length_ + 1);
    UpdateInterface(packet,
                    {interface_key_, agent_key_length_ + kInterfaceKeyLength - kIpv4KeyLength},
                    side_meter);
  };
  meter_interface(packet.sample.inputPort, interfaces::kReceived);
  meter_interface(packet.sample.outputPort, interfaces::kTransmitted);
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
      agent_ipv4_key_};
  FLOW_DIR_T direction = FLOW_DIR_FORWARD;
  if (packet.is_ipv6) {
    direction = policy_.fMatchBiDirectionalFlows ? MakeSessionKey_IPv6_Bi(rules, flow, key_)
                                                 : MakeSessionKey_IPv6_Uni(rules, flow, key_);
  } else {
    direction =
        policy_.fMatchBiDirectionalFlows
            ? sflow::MakeSessionKey_Bi(rules, flow, packet.Source(), packet.Destination(), key_)
            : sflow::MakeSessionKey_Uni(rules, flow, key_);
  }
  if (agent_is_ipv6_ && !rules.merge_sources) {
    ReplaceExporter(agent_key_.text, packet.is_ipv6 ? kSession6KeyLength : kSessionKeyLength, key_);
  }
  return direction;
}

void CPISFlowMeter::MeterTcp(const Packet& packet) {
  const std::uint32_t flags = packet.sample.TCPFlags;
  if ((flags & kTcpSynOrRst) != 0) engine_->CloseFlow(COUNTERID_FLOWS, key_);
  if ((flags & kTcpSynAck) != kTcpSynAck) return;
  if (policy_.fMeterTCPConnections && !packet.is_ipv6) {
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
