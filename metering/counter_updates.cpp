// SPDX-License-Identifier: Apache-2.0
// The counter updates of one record, one function for each kind of counter.

#include <cstring>
#include <string_view>

#include "keys/network_keys.h"
#include "metering/record_metering.h"

namespace flow {
namespace {

bool IsZeroMac(const std::uint8_t* mac) {
  static constexpr std::uint8_t kZero[6] = {};
  return std::memcmp(mac, kZero, sizeof(kZero)) == 0;
}

}  // namespace

void RecordMetering::UpdateAsNumbers(const Record& r) {
  const auto update = [&](std::uint32_t as_number, int meter) {
    const char* const end = MakeAsKey(as_number, key_);
    r.engine->UpdateCounter2(COUNTERID_ASN, static_cast<int>(end - key_), key_, asn::kBytes,
                             r.bytes, meter, r.bytes);
  };
  // Whose AS is at home by its network needs no AS counter, unless home is a matter of AS numbers.
  const bool all = r.policy.fHomeASNumbers;
  if (all || !r.source_home) {
    update(r.rec.src_as, r.source_as_home ? asn::kSourceHome : asn::kSourceNotHome);
  }
  if (all || !r.destination_home) {
    update(r.rec.dst_as, r.destination_as_home ? asn::kDestinationHome : asn::kDestinationNotHome);
  }
}

void RecordMetering::UpdatePrefixes(const Record& r) {
  const bool is_ipv6 = r.rec.ip_version == 6;
  const auto update = [&](const char* end, int side_meter) {
    r.engine->UpdateCounter3(is_ipv6 ? COUNTERID_PREFIX6 : COUNTERID_PREFIX4,
                             static_cast<int>(end - key_), key_, prefixes::kBytes, r.bytes,
                             prefixes::kFlows, 1, side_meter, r.bytes);
  };
  update(is_ipv6 ? MakePrefix6Key(r.rec.src_addr6, r.rec.src_mask, key_)
                 : MakePrefix4Key(r.rec.src_addr, r.rec.src_mask, key_),
         r.source_as_home ? prefixes::kSourceHome : prefixes::kSourceNotHome);
  update(is_ipv6 ? MakePrefix6Key(r.rec.dst_addr6, r.rec.dst_mask, key_)
                 : MakePrefix4Key(r.rec.dst_addr, r.rec.dst_mask, key_),
         r.destination_as_home ? prefixes::kDestinationHome : prefixes::kDestinationNotHome);
}

void RecordMetering::UpdateNextHops(const Record& r) {
  if (r.policy.fMeterBGPNextHop) {
    r.engine->UpdateCounter(COUNTERID_BGPNEXTHOP, next_hop_.KeyOf(r.rec.bgp_nexthop),
                            totals::kBytes, r.bytes);
  }
  if (r.policy.fMeterIPNextHop) {
    r.engine->UpdateCounter(COUNTERID_IPNEXTHOP, next_hop_.KeyOf(r.rec.ip_nexthop), totals::kBytes,
                            r.bytes);
  }
}

void RecordMetering::UpdateVrf(const Record& r) {
  if (context_.VrfTagText.Empty()) return;
  r.engine->UpdateCounter(COUNTERID_VRF, context_.VrfTagText.Text(), totals::kBytes, r.bytes);
}

void RecordMetering::UpdateEtherType(const Record& r) {
  r.engine->UpdateCounterKeyLen(COUNTERID_ETHERTYPE, 4, r.rec.ip_version == 6 ? "86DD" : "0800",
                                totals::kBytes, r.bytes);
}

void RecordMetering::UpdateHosts(const Record& r) {
  if (r.rec.ip_version == 6) UpdateIpv6Hosts(r, source_key_, destination_key_);
  if (r.rec.ip_version == 4) UpdateIpv4Hosts(r, source_key_, destination_key_);
}

void RecordMetering::UpdateApplications(const Record& r) {
  const std::uint8_t protocol = r.rec.protocol;
  // Exporters that leave the protocol out send ports all the same.
  if (protocol == kTcp || protocol == kUdp || protocol == 0) return UpdatePortApplications(r);
  if (protocol != kIcmpv6) return UpdateProtocolApplication(r, protocol);
  if (r.rec.ip_version != 6) return;
  UpdateIcmpv6(r);
}

void RecordMetering::UpdatePortApplications(const Record& r) {
  if (r.policy.fMeterBothPorts) {
    return UpdateServicePorts(r.engine, r.GetPorts(), apps::kBytes, r.bytes);
  }
  UpdateSmallerPort(r, r.GetPorts());
  const auto& tag = context_.AppTagText;
  if (r.policy.fMeterNBAR && !tag.Empty()) {
    r.engine->UpdateCounter2(COUNTERID_NBAR, static_cast<int>(tag.Size()), tag.Text(), apps::kBytes,
                             r.bytes, r.direction->apps_meter, r.bytes);
  }
}

// NetFlow v9 and IPFIX give prefixes, which UpdatePrefixes counts: their hosts are in no subnet.
void RecordMetering::UpdateSubnets(const Record& r) {
  static constexpr std::string_view kExternal = "external";
  const auto update = [&](std::string_view key, int side_meter) {
    r.engine->UpdateCounter3(COUNTERID_SUBNETS, static_cast<int>(key.size()), key.data(),
                             subnets::kBytes, r.bytes, side_meter, r.bytes, subnets::kPackets,
                             r.packets);
  };
  const auto update_subnet = [&](std::uint32_t address, std::uint8_t prefix_length, int meter) {
    if (prefix_length < 1 || prefix_length > 31) return update(kExternal, meter);
    MakeSubnetKey(address, prefix_length, key_);
    update({key_, kSubnetKeyLength}, meter);
  };
  if (context_.CurrentExportVersion >= 9) {
    update(kExternal, subnets::kBytesAsSource);
    update(kExternal, subnets::kBytesAsDestination);
  } else {
    update_subnet(r.rec.src_addr, r.rec.src_mask, subnets::kBytesAsSource);
    update_subnet(r.rec.dst_addr, r.rec.dst_mask, subnets::kBytesAsDestination);
  }
}

void RecordMetering::UpdateInterfaces(const Record& r) {
  const char* const in_interface = in_interface_.KeyOf(r.rec.in_ifindex);
  UpdateInterface(r, {in_interface, kInterfaceKeyLength}, interfaces::kReceived);
  const char* const out_interface = out_interface_.KeyOf(r.rec.out_ifindex);
  UpdateInterface(r, {out_interface, kInterfaceKeyLength}, interfaces::kTransmitted);
  if (r.policy.fMeterLinkAS) UpdateLinkAs(r, in_interface, out_interface);
}

void RecordMetering::UpdateLinkAs(const Record& r, const char* in_interface,
                                  const char* out_interface) {
  char link_key[kKeyBufferSize];
  const auto update = [&](std::uint32_t as_number, const char* interface_key, int meter) {
    char* const out = MakeAsKey(as_number, link_key);
    *out = '\\';
    std::memcpy(out + 1, interface_key, kInterfaceKeyLength + 1);
    r.engine->UpdateCounter(COUNTERID_LINKAS, link_key, meter, r.bytes);
  };
  update(r.rec.src_as, in_interface, link_as::kSourceOnInput);
  update(r.rec.dst_as, out_interface, link_as::kDestinationOnOutput);
}

void RecordMetering::UpdateVendorTexts(const Record& r) {
  const Direction& direction = DirectionOf(r.source_host_home, r.destination_host_home);
  const auto update = [&](bool enabled, const GUID& group, const char* text) {
    if (!enabled || text[0] == '\0') return;
    r.engine->UpdateCounter(group, text, vendor_texts::kBytes, r.bytes);
    r.engine->UpdateCounter(group, text, vendor_texts::kFlows, 1);
    r.engine->UpdateCounter(group, text, direction.vendor_texts_meter, r.bytes);
  };
  update(r.policy.fMeterAppID, COUNTERID_APPID, r.rec.vendor_text64);
  update(r.policy.fMeterUserID, COUNTERID_USERID, r.rec.vendor_text32);
}

void RecordMetering::UpdateConnections(const Record& r) {
  if (r.rec.protocol != kTcp || (r.rec.tcp_flags & kTcpSynAck) != kTcpSynAck) return;
  if (r.policy.fMeterTCPConnections) {  // an IPv6 one counts for 0.0.0.0, as hosts know it
    UpdateHostConnections(r.engine, MakeIpv4Key(r.rec.src_addr).text,
                          MakeIpv4Key(r.rec.dst_addr).text);
  }
  if (!r.policy.fMeterAppConnections) return;
  if (r.policy.fMeterBothPorts) {  // really both, unlike the bytes and unlike the sFlow meter
    UpdatePort(r.engine, r.rec.src_port, apps::kConnections, 1);
    UpdatePort(r.engine, r.rec.dst_port, apps::kConnections, 1);
  } else {
    UpdatePort(r.engine, r.GetPorts().Smaller(), apps::kConnections, 1);
  }
}

void RecordMetering::UpdateMacAddresses(const Record& r) {
  const auto update = [&](const std::uint8_t* address, int meter) {
    if (IsZeroMac(address)) return;
    FormatMAC(address, key_);
    r.engine->UpdateCounterKeyLen(COUNTERID_MAC, kMacKeyLength, key_, meter, r.bytes);
  };
  update(r.rec.src_mac, mac::kBytesAsSource);
  update(r.rec.dst_mac, mac::kBytesAsDestination);
}

// The updates behind all others, in the order in which they came to be: hosts see a new one last.
void RecordMetering::UpdateLast(const Record& r) {
  if (r.policy.fMeterMAC && r.rec.has_extras) UpdateMacAddresses(r);
}

}  // namespace flow
