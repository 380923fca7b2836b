// The counter updates of one record, one function for each kind of counter.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "metering/record_metering.h"
#include "util/address_text.h"

namespace flow {
namespace {

constexpr std::uint8_t kIcmp = 1;
constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kGre = 47;
constexpr std::uint8_t kEsp = 50;
constexpr std::uint8_t kIcmpv6 = 58;
constexpr std::uint8_t kTcpSynAck = 0x12;
constexpr std::uint16_t kFirstClientPort = 1024;

// The AS number as the host's stored counters have always shown it: signed.
int WriteAsKey(std::uint32_t as_number, char* out) {
  const auto number = static_cast<std::int32_t>(as_number);
  char* const end = number < 0 ? PutSignedDecimal(number, out) : PutShortDecimal(as_number, out);
  *end = '\0';
  return static_cast<int>(end - out);
}

int EndPrefixKey(std::uint8_t prefix_length, char* start, char* out) {
  *out++ = '/';
  out = PutOctet(prefix_length, out);
  *out = '\0';
  return static_cast<int>(out - start);
}

int WritePrefixKey4(std::uint32_t address, std::uint8_t prefix_length, char* out) {
  if (prefix_length == 0) {
    address = 0;
  } else if (prefix_length < 32) {
    address &= ~std::uint32_t{0} << (32 - prefix_length);
  }
  return EndPrefixKey(prefix_length, out, PutDottedIpv4(address, out));
}

// 64 bits in network order, the first `length` of them set; length is below 64.
std::uint64_t Mask64(unsigned length) { return BigEndian(~(~std::uint64_t{0} >> length)); }

int WritePrefixKey6(const std::uint8_t* address, std::uint8_t prefix_length, char* out) {
  std::uint64_t halves[2];
  std::memcpy(halves, address, sizeof(halves));
  if (prefix_length < 64) {
    halves[0] &= Mask64(prefix_length);
    halves[1] = 0;
  } else if (prefix_length < 128) {
    halves[1] &= Mask64(prefix_length - 64U);
  }
  std::uint8_t prefix[16];
  std::memcpy(prefix, halves, sizeof(prefix));
  return EndPrefixKey(prefix_length, out, PutIpv6Text(prefix, out));
}

bool IsZeroMac(const std::uint8_t* mac) {
  static constexpr std::uint8_t kZero[6] = {};
  return std::memcmp(mac, kZero, sizeof(kZero)) == 0;
}

}  // namespace

void RecordMetering::UpdateAsNumbers(const Record& r) {
  const auto update = [&](std::uint32_t as_number, int meter) {
    const int length = WriteAsKey(as_number, key_);
    r.engine->UpdateCounter2(COUNTERID_ASN, length, key_, asn::kBytes, r.bytes, meter, r.bytes);
  };
  // Whose AS is at home by its network needs no AS counter, unless home is a matter of AS numbers.
  const bool all = policy_.fHomeASNumbers;
  if (all || !r.source_home) {
    update(r.ext.src_as, r.source_as_home ? asn::kSourceHome : asn::kSourceNotHome);
  }
  if (all || !r.destination_home) {
    update(r.ext.dst_as, r.destination_as_home ? asn::kDestinationHome : asn::kDestinationNotHome);
  }
}

void RecordMetering::UpdatePrefixes(const Record& r) {
  const bool is_ipv6 = r.ext.ip_version == 6;
  const GUID& group = is_ipv6 ? COUNTERID_PREFIX6 : COUNTERID_PREFIX4;
  int length = is_ipv6 ? WritePrefixKey6(r.ext.src_addr6, r.ext.src_mask, key_)
                       : WritePrefixKey4(r.source, r.ext.src_mask, key_);
  r.engine->UpdateCounter3(group, length, key_, prefixes::kBytes, r.bytes, prefixes::kFlows, 1,
                           r.source_as_home ? prefixes::kSourceHome : prefixes::kSourceNotHome,
                           r.bytes);
  length = is_ipv6 ? WritePrefixKey6(r.ext.dst_addr6, r.ext.dst_mask, second_key_)
                   : WritePrefixKey4(r.destination, r.ext.dst_mask, second_key_);
  r.engine->UpdateCounter3(
      group, length, second_key_, prefixes::kBytes, r.bytes, prefixes::kFlows, 1,
      r.destination_as_home ? prefixes::kDestinationHome : prefixes::kDestinationNotHome, r.bytes);
}

void RecordMetering::UpdateNextHops(const Record& r) {
  if (policy_.fMeterBGPNextHop) {
    r.engine->UpdateCounter(COUNTERID_BGPNEXTHOP, next_hop_.KeyOf(r.ext.bgp_nexthop),
                            totals::kBytes, r.bytes);
  }
  if (policy_.fMeterIPNextHop) {
    r.engine->UpdateCounter(COUNTERID_IPNEXTHOP, next_hop_.KeyOf(r.ext.ip_nexthop), totals::kBytes,
                            r.bytes);
  }
}

void RecordMetering::UpdateTotals(const Record& r) {
  if (policy_.fMeterVRF && !context_.VrfTagText.Empty()) {
    r.engine->UpdateCounter(COUNTERID_VRF, context_.VrfTagText.Text(), totals::kBytes, r.bytes);
  }
  r.engine->UpdateCounterHashed2(COUNTERID_AGGREGATES, kTotalBandwidth.hash, kTotalBandwidth.text,
                                 totals::kBytes, r.bytes, totals::kPackets, r.packets);
  MakeProtocolKey(r.rec.prot, key_);
  r.engine->UpdateCounterKeyLen(COUNTERID_IPPROTOCOL, kProtocolKeyLength, key_, totals::kBytes,
                                r.bytes);
}

void RecordMetering::UpdateEtherType(const Record& r) {
  r.engine->UpdateCounterKeyLen(COUNTERID_ETHERTYPE, 4, r.ext.ip_version == 6 ? "86DD" : "0800",
                                totals::kBytes, r.bytes);
}

void RecordMetering::UpdateHosts(const Record& r) {
  if (r.ext.ip_version == 6) {
    r.engine->UpdateCounter2(COUNTERID_HOSTS6, kIpv6KeyLength, r.source_key, hosts::kBytes, r.bytes,
                             hosts::kBytesAsSource, r.bytes);
    r.engine->UpdateCounter2(COUNTERID_HOSTS6, kIpv6KeyLength, r.destination_key, hosts::kBytes,
                             r.bytes, hosts::kBytesAsDestination, r.bytes);
    return;
  }
  if (r.ext.ip_version != 4) return;
  const std::uint64_t values[] = {r.bytes, r.bytes, r.bytes, r.packets};
  r.engine->UpdateCounterMulti(COUNTERID_HOSTS, kIpv4KeyLength, r.source_key, 4,
                               hosts::kSourceMeters[r.source_home], values);
  r.engine->UpdateCounterMulti(COUNTERID_HOSTS, kIpv4KeyLength, r.destination_key, 4,
                               hosts::kDestinationMeters[r.destination_home], values);
  const AggregateKey& way = r.direction->aggregate;
  r.engine->UpdateCounterHashed2(COUNTERID_AGGREGATES, way.hash, way.text, totals::kBytes, r.bytes,
                                 totals::kPackets, r.packets);
}

void RecordMetering::UpdateApplications(const Record& r) {
  const auto update = [&](std::string_view name) {
    r.engine->UpdateCounterKeyLen(COUNTERID_APPS, static_cast<int>(name.size()), name.data(),
                                  apps::kBytes, r.bytes);
  };
  switch (r.rec.prot) {
    case 0:
    case kTcp:
    case kUdp:
      return UpdatePortApplications(r);
    case kIcmp:
      return update("icmp");
    case kGre:
      return update("gre");
    case kEsp:
      return update("ipsec-esp");
    case kIcmpv6:
      if (r.ext.ip_version == 6) update("icmpv6");
      return;
    default:
      return;
  }
}

void RecordMetering::UpdatePortApplications(const Record& r) {
  if (!policy_.fMeterBothPorts) {
    const int meter = r.direction->apps_meter;
    MakePortKey(std::min(r.source_port, r.destination_port), key_);
    r.engine->UpdateCounter2(COUNTERID_APPS, kPortKeyLength, key_, apps::kBytes, r.bytes, meter,
                             r.bytes);
    const auto& tag = context_.AppTagText;
    if (policy_.fMeterNBAR && !tag.Empty()) {
      r.engine->UpdateCounter2(COUNTERID_NBAR, static_cast<int>(tag.Size()), tag.Text(),
                               apps::kBytes, r.bytes, meter, r.bytes);
    }
    return;
  }
  const auto update = [&](std::uint16_t port) {
    MakePortKey(port, key_);
    r.engine->UpdateCounterKeyLen(COUNTERID_APPS, kPortKeyLength, key_, apps::kBytes, r.bytes);
  };
  const bool source_is_service = r.source_port < kFirstClientPort;
  const bool destination_is_service = r.destination_port < kFirstClientPort;
  if (source_is_service || !destination_is_service) update(r.source_port);
  if (!source_is_service) update(r.destination_port);
}

void RecordMetering::UpdateSubnets(const Record& r) {
  const auto update = [&](std::uint32_t address, std::uint8_t prefix_length, int side_meter) {
    const bool is_subnet = prefix_length >= 1 && prefix_length <= 31;
    const char* const end =
        is_subnet ? MakeSubnetKey(address, prefix_length, key_) : WriteText("external", key_);
    r.engine->UpdateCounter3(COUNTERID_SUBNETS, static_cast<int>(end - key_), key_, subnets::kBytes,
                             r.bytes, side_meter, r.bytes, subnets::kPackets, r.packets);
  };
  update(r.source, r.rec.src_mask, subnets::kBytesAsSource);
  update(r.destination, r.rec.dst_mask, subnets::kBytesAsDestination);
}

void RecordMetering::UpdateInterfaces(const Record& r) {
  char* const in_interface = key_;
  char* const out_interface = second_key_;
  MakeIntfKey(exporter_key_, r.ext.in_ifindex, in_interface);
  r.engine->UpdateCounter3(COUNTERID_FLOWINTF, kInterfaceKeyLength, in_interface,
                           interfaces::kBytes, r.bytes, interfaces::kReceived, r.bytes,
                           interfaces::kFlows, 1);
  MakeIntfKey(exporter_key_, r.ext.out_ifindex, out_interface);
  r.engine->UpdateCounter3(COUNTERID_FLOWINTF, kInterfaceKeyLength, out_interface,
                           interfaces::kBytes, r.bytes, interfaces::kTransmitted, r.bytes,
                           interfaces::kFlows, 1);
  if (policy_.fMeterLinkAS) UpdateLinkAs(r, in_interface, out_interface);
}

void RecordMetering::UpdateLinkAs(const Record& r, const char* in_interface,
                                  const char* out_interface) {
  char link_key[kKeyBufferSize];
  const auto update = [&](std::uint32_t as_number, const char* interface_key, int meter) {
    char* const out = link_key + WriteAsKey(as_number, link_key);
    *out = '\\';
    std::memcpy(out + 1, interface_key, kInterfaceKeyLength + 1);
    r.engine->UpdateCounter(COUNTERID_LINKAS, link_key, meter, r.bytes);
  };
  update(r.ext.src_as, in_interface, link_as::kSourceOnInput);
  update(r.ext.dst_as, out_interface, link_as::kDestinationOnOutput);
}

void RecordMetering::UpdateVendorTexts(const Record& r) {
  const auto update = [&](bool enabled, const GUID& group, const char* text) {
    if (!enabled || text[0] == '\0') return;
    r.engine->UpdateCounter(group, text, vendor_texts::kBytes, r.bytes);
    r.engine->UpdateCounter(group, text, vendor_texts::kFlows, 1);
    r.engine->UpdateCounter(group, text, r.host_direction->vendor_texts_meter, r.bytes);
  };
  update(policy_.fMeterAppID, COUNTERID_APPID, r.ext.vendor_text64);
  update(policy_.fMeterUserID, COUNTERID_USERID, r.ext.vendor_text32);
}

void RecordMetering::UpdateConnections(const Record& r) {
  if (r.rec.prot != kTcp || (r.rec.tcp_flags & kTcpSynAck) != kTcpSynAck) return;
  if (policy_.fMeterTCPConnections) {
    for (const std::uint32_t address : {r.source, r.destination}) {
      OmbrelAPI::Long2IPHex(address, key_);
      r.engine->UpdateCounterKeyLen(COUNTERID_HOSTS, kIpv4KeyLength, key_, hosts::kTcpConnections,
                                    1);
    }
  }
  if (!policy_.fMeterAppConnections) return;
  const auto update = [&](std::uint16_t port) {
    MakePortKey(port, key_);
    r.engine->UpdateCounterKeyLen(COUNTERID_APPS, kPortKeyLength, key_, apps::kConnections, 1);
  };
  if (policy_.fMeterBothPorts) {
    update(r.source_port);
    update(r.destination_port);
  } else {
    update(std::min(r.source_port, r.destination_port));
  }
}

void RecordMetering::UpdateMacAddresses(const Record& r) {
  const auto update = [&](const std::uint8_t* address, int meter) {
    if (IsZeroMac(address)) return;
    FormatMAC(address, key_);
    r.engine->UpdateCounterKeyLen(COUNTERID_MAC, kMacKeyLength, key_, meter, r.bytes);
  };
  update(r.ext.src_mac, mac::kBytesAsSource);
  update(r.ext.dst_mac, mac::kBytesAsDestination);
}

}  // namespace flow
