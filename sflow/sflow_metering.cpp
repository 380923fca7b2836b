// What one sample becomes: the host calls of the sFlow meter.

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/sflow_keys.h"
#include "sflow/sflow_meter.h"

namespace {

using namespace flow;  // NOLINT(google-build-using-namespace)

enum IPProtocolNumber : std::uint32_t {
  kIcmp = 1,
  kTcp = 6,
  kUdp = 17,
  kGre = 47,
  kEsp = 50,
};

constexpr std::uint32_t kTcpSyn = 0x02;
constexpr std::uint32_t kTcpRst = 0x04;
constexpr std::uint32_t kTcpSynAck = 0x12;

// The record keeps the fields of the flow sample before a counters sample or a skipped one;
// metering those again would count that flow twice. Later fragments carry no ports.
bool IsMetered(const _SFSample& sample) {
  const bool is_flow_sample =
      sample.sampleType == kSFFlowSample || sample.sampleType == kSFExpandedFlowSample;
  return is_flow_sample && sample.decodeOK != 0 && sample.srcIP.type == kSFAddressIPv4 &&
         sample.IPFragmentOffset == 0;
}

// The ports that stand for the services of a packet: the well-known one, or both.
struct ServicePorts {
  std::uint32_t ports[2];
  int count;
};
ServicePorts FindServicePorts(std::uint32_t source, std::uint32_t destination) {
  constexpr std::uint32_t kWellKnown = 1024;
  if (source < kWellKnown) return {{source, 0}, 1};
  if (destination < kWellKnown) return {{destination, 0}, 1};
  return {{source, destination}, 2};
}

}  // namespace

struct CPISFlowMeter::Packet {
  Packet(const _SFSample& from, const HomeNetworks& home)
      : sample(from),
        bytes(static_cast<std::uint32_t>(from.sampledPacketSize * from.meanSkipCount)),
        packets(from.meanSkipCount),
        agent(from.agent.ToHostIPv4()),
        source(from.srcIP.ToHostIPv4()),
        destination(from.dstIP.ToHostIPv4()),
        agent_key(MakeIpv4Key(agent)),
        source_key(MakeIpv4Key(source)),
        destination_key(MakeIpv4Key(destination)),
        source_home(home.Contains(source)),
        destination_home(home.Contains(destination)) {}

  const _SFSample& sample;
  std::uint64_t bytes;  // modulo 2^32
  std::uint64_t packets;
  std::uint32_t agent;
  std::uint32_t source;
  std::uint32_t destination;
  Ipv4Key agent_key;
  Ipv4Key source_key;
  Ipv4Key destination_key;
  bool source_home;
  bool destination_home;
};

void CPISFlowMeter::MeterSFlow(const _SFSample& sample) {
  engine_->MarkRecord();
  if (!IsMetered(sample)) return;
  const Packet packet(sample, home_);
  if (policy_.fMeterNetflowSources) MeterExporter(packet);
  if (!PassesFilters(packet)) return;
  MeterTotals(packet);
  if (policy_.fMeterHosts) MeterHosts(packet);
  if (policy_.fMeterApplications) MeterApplication(packet);
  if (policy_.fMeterNetflowInterfaces) MeterInterfaces(packet);
  MeterSession(packet);
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

void CPISFlowMeter::MeterTotals(const Packet& packet) {
  engine_->UpdateCounterHashed2(COUNTERID_AGGREGATES, kTotalBandwidth.hash, kTotalBandwidth.text,
                                totals::kBytes, packet.bytes, totals::kPackets, packet.packets);
  MakeProtocolKey(static_cast<std::uint8_t>(packet.sample.IPProtocol), key_);
  engine_->UpdateCounterKeyLen(COUNTERID_IPPROTOCOL, kProtocolKeyLength, key_, totals::kBytes,
                               packet.bytes);
}

void CPISFlowMeter::MeterHosts(const Packet& packet) {
  const auto meter_host = [&](const Ipv4Key& host, int direction_meter, bool home) {
    const int meters[] = {hosts::kBytes, direction_meter,
                          home ? hosts::kBytesWhileHome : hosts::kBytesWhileNotHome,
                          hosts::kPackets};
    const std::uint64_t values[] = {packet.bytes, packet.bytes, packet.bytes, packet.packets};
    engine_->UpdateCounterMulti(COUNTERID_HOSTS, kIpv4KeyLength, host.text, 4, meters, values);
  };
  meter_host(packet.source_key, hosts::kBytesAsSource, packet.source_home);
  meter_host(packet.destination_key, hosts::kBytesAsDestination, packet.destination_home);

  const AggregateKey& way = DirectionOf(packet.source_home, packet.destination_home).aggregate;
  engine_->UpdateCounterHashed2(COUNTERID_AGGREGATES, way.hash, way.text, totals::kBytes,
                                packet.bytes, totals::kPackets, packet.packets);
}

void CPISFlowMeter::MeterApplication(const Packet& packet) {
  const auto meter_protocol = [&](const char* name, int length) {
    engine_->UpdateCounterKeyLen(COUNTERID_APPS, length, name, apps::kBytes, packet.bytes);
  };
  switch (packet.sample.IPProtocol) {
    case kTcp:
    case kUdp:
      MeterPorts(packet);
      break;
    case kIcmp:
      meter_protocol("icmp", 4);
      break;
    case kGre:
      meter_protocol("gre", 3);
      break;
    case kEsp:
      meter_protocol("ipsec-esp", 9);
      break;
    default:
      break;
  }
}

void CPISFlowMeter::MeterPorts(const Packet& packet) {
  const std::uint32_t source = packet.sample.srcPort;
  const std::uint32_t destination = packet.sample.dstPort;
  if (policy_.fMeterBothPorts) {
    const ServicePorts services = FindServicePorts(source, destination);
    for (int i = 0; i < services.count; ++i) {
      UpdateService(services.ports[i], apps::kBytes, packet.bytes);
    }
    return;
  }
  const std::uint32_t smaller = source < destination ? source : destination;
  MakePortKey(static_cast<std::uint16_t>(smaller), key_);
  engine_->UpdateCounter2(COUNTERID_APPS, kPortKeyLength, key_, apps::kBytes, packet.bytes,
                          DirectionOf(packet.source_home, packet.destination_home).apps_meter,
                          packet.bytes);
}

void CPISFlowMeter::UpdateService(std::uint32_t port, int meter, std::uint64_t value) {
  MakePortKey(static_cast<std::uint16_t>(port), key_);
  engine_->UpdateCounterKeyLen(COUNTERID_APPS, kPortKeyLength, key_, meter, value);
}

void CPISFlowMeter::MeterInterfaces(const Packet& packet) {
  const auto meter_interface = [&](std::uint32_t ifindex, int direction_meter) {
    MakeIntfKey(packet.agent_key, ifindex, key_);
    engine_->UpdateCounter3(COUNTERID_FLOWINTF, kInterfaceKeyLength, key_, interfaces::kBytes,
                            packet.bytes, direction_meter, packet.bytes, interfaces::kFlows, 1);
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
  engine_->UpdateFlowVolume(key_, packet.bytes, 0, packet.packets, 0);
  if (packet.sample.IPProtocol == kTcp) MeterTcp(packet);
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
  if ((flags & (kTcpSyn | kTcpRst)) != 0) engine_->CloseFlow(COUNTERID_FLOWS, key_);
  if ((flags & kTcpSynAck) != kTcpSynAck) return;
  if (policy_.fMeterTCPConnections) {
    for (const Ipv4Key* host : {&packet.source_key, &packet.destination_key}) {
      engine_->UpdateCounterKeyLen(COUNTERID_HOSTS, kIpv4KeyLength, host->text,
                                   hosts::kTcpConnections, 1);
    }
  }
  if (policy_.fMeterAppConnections) {
    const ServicePorts services = FindServicePorts(packet.sample.srcPort, packet.sample.dstPort);
    for (int i = 0; i < services.count; ++i) {
      UpdateService(services.ports[i], apps::kConnections, 1);
    }
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
