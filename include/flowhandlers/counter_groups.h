// SPDX-License-Identifier: Apache-2.0
// The host's counter groups that the meters write into, the meters of each group, and the fixed
// keys among them. A group is named by its GUID, a meter by its position in the group as the host
// defines it. "Bytes" and "packets" are the metered values, sampling applied.
#pragma once

#include <cstdint>

#include "flowhandlers/guid.h"

inline constexpr GUID COUNTERID_HOSTS = MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86");
inline constexpr GUID COUNTERID_HOSTS6 = MakeGuid("9807E97A-6CD2-442F-BB18-8C104C8EB204");
inline constexpr GUID COUNTERID_FLOWS = MakeGuid("99A78737-4B41-4387-8F31-8077DB917336");
inline constexpr GUID COUNTERID_FLOWGEN = MakeGuid("2314BB8E-2BCC-4B86-8AA2-677E5554C0FE");
inline constexpr GUID COUNTERID_FLOWINTF = MakeGuid("C0B04CA7-95FA-44EF-8475-3835F3314761");
inline constexpr GUID COUNTERID_AGGREGATES = MakeGuid("393B5EBC-AB41-4387-8F31-8077DB917336");
inline constexpr GUID COUNTERID_IPPROTOCOL = MakeGuid("E89BCD56-30AD-40F5-B1C8-8B7683F440BD");
inline constexpr GUID COUNTERID_ETHERTYPE = MakeGuid("9F5AD3A9-C74D-46D8-A8A8-DCDD773730BA");
inline constexpr GUID COUNTERID_APPS = MakeGuid("C51B48D4-7876-479E-B0D9-BD9EFF03CE2E");
inline constexpr GUID COUNTERID_NBAR = MakeGuid("322AFE57-BA50-47B1-BE5C-EBC05BCC186B");
inline constexpr GUID COUNTERID_SUBNETS = MakeGuid("429B65AD-CDA4-452E-A852-24D8A3D0FBB3");
inline constexpr GUID COUNTERID_ASN = MakeGuid("120A3124-E2BB-47BD-6C64-71BBB861C428");
inline constexpr GUID COUNTERID_LINKAS = MakeGuid("1D86CAB7-B4C4-433E-BCB9-C779A4244D70");
inline constexpr GUID COUNTERID_IPNEXTHOP = MakeGuid("79693CA3-ED3C-43B3-E12A-A3F64B125E4F");
inline constexpr GUID COUNTERID_BGPNEXTHOP = MakeGuid("FC61EC07-BED0-4734-C64C-F5932FD8B943");
inline constexpr GUID COUNTERID_VRF = MakeGuid("7FAB8F84-C580-424B-2BA4-B2546D2DB15A");
inline constexpr GUID COUNTERID_VLAN = MakeGuid("0EC72E9E-3AD2-43FD-8173-74693EEA08D0");
inline constexpr GUID COUNTERID_MAC = MakeGuid("4B09BD22-3B99-40FC-8215-94A430EA0A35");
inline constexpr GUID COUNTERID_MACPAIR = MakeGuid("79F60A94-44BD-4C55-891A-77823D59161B");
inline constexpr GUID COUNTERID_APPID = MakeGuid("86A8880D-F4B2-4E49-A4FA-718880CAA976");
inline constexpr GUID COUNTERID_USERID = MakeGuid("9021F5D3-FEFB-401B-99EC-EF2ACD088578");
inline constexpr GUID COUNTERID_PREFIX4 = MakeGuid("2BE2A3B6-613D-4216-0737-3684E824EA33");
inline constexpr GUID COUNTERID_PREFIX6 = MakeGuid("467AE21F-F2B7-4509-EA69-514CF2352D36");

// Not traffic: what a meter with CountLeftOut tells of records that it does not meter.
inline constexpr GUID COUNTERID_LEFTOUT = MakeGuid("5D0C8B1E-3C52-4F0B-9E37-6A1D4C9F27B8");

namespace flow {

// HOSTS (key: IPv4 hex); HOSTS6 (key: IPv6 hex) has the first three.
namespace hosts {
inline constexpr int kBytes = 0;
inline constexpr int kBytesAsDestination = 1;
inline constexpr int kBytesAsSource = 2;
inline constexpr int kPackets = 3;
inline constexpr int kBytesWhileHome = 6;
inline constexpr int kBytesWhileNotHome = 7;
inline constexpr int kTcpConnections = 10;

// What a flow's bytes (three times) and packets are added to for its source and for its
// destination, by whether that one is at home.
inline constexpr int kSourceMeters[2][4] = {{kBytes, kBytesAsSource, kBytesWhileNotHome, kPackets},
                                            {kBytes, kBytesAsSource, kBytesWhileHome, kPackets}};
inline constexpr int kDestinationMeters[2][4] = {
    {kBytes, kBytesAsDestination, kBytesWhileNotHome, kPackets},
    {kBytes, kBytesAsDestination, kBytesWhileHome, kPackets}};
}  // namespace hosts

// FLOWS (key: session key).
namespace flows {
inline constexpr int kForwardBytes = 0;
inline constexpr int kReverseBytes = 1;
inline constexpr int kForwardPackets = 2;
inline constexpr int kReversePackets = 3;
}  // namespace flows

// FLOWGEN (key: IPv4 hex of the exporter).
namespace exporters {
inline constexpr int kBytes = 0;
inline constexpr int kExportBytes = 1;  // of the export datagrams themselves
inline constexpr int kRecords = 2;
}  // namespace exporters

// FLOWINTF (key: interface key).
namespace interfaces {
inline constexpr int kBytes = 0;
inline constexpr int kReceived = 1;
inline constexpr int kTransmitted = 2;
inline constexpr int kFlows = 3;
}  // namespace interfaces

// AGGREGATES (keys below), IPPROTOCOL (two hex digits), ETHERTYPE ("86DD", "0800"), IPNEXTHOP and
// BGPNEXTHOP (IPv4 hex), VRF ("VRF:%d"), MACPAIR (two MAC texts): total bytes; AGGREGATES also
// counts packets.
namespace totals {
inline constexpr int kBytes = 0;
inline constexpr int kPackets = 1;
}  // namespace totals

// APPS (key: port key or a protocol's name) and NBAR (key: application tag).
namespace apps {
inline constexpr int kBytes = 0;
inline constexpr int kIntoHome = 2;
inline constexpr int kOutOfHome = 3;
inline constexpr int kConnections = 4;
inline constexpr int kWithinHome = 5;
inline constexpr int kTransit = 6;
}  // namespace apps

// SUBNETS (key: subnet key or "external").
namespace subnets {
inline constexpr int kBytes = 0;
inline constexpr int kBytesAsDestination = 1;
inline constexpr int kBytesAsSource = 2;
inline constexpr int kPackets = 3;
}  // namespace subnets

// ASN (key: AS number in decimal).
namespace asn {
inline constexpr int kBytes = 0;
inline constexpr int kSourceNotHome = 1;
inline constexpr int kDestinationNotHome = 2;
inline constexpr int kSourceHome = 3;
inline constexpr int kDestinationHome = 4;
}  // namespace asn

// LINKAS (key: AS number, backslash, interface key).
namespace link_as {
inline constexpr int kSourceOnInput = 0;
inline constexpr int kDestinationOnOutput = 1;
}  // namespace link_as

// PREFIX4 and PREFIX6 (key: prefix in the usual notation).
namespace prefixes {
inline constexpr int kBytes = 0;
inline constexpr int kSourceNotHome = 1;
inline constexpr int kDestinationNotHome = 2;
inline constexpr int kFlows = 3;
inline constexpr int kSourceHome = 4;
inline constexpr int kDestinationHome = 5;
}  // namespace prefixes

// MAC (key: MAC text).
namespace mac {
inline constexpr int kBytesAsSource = 0;
inline constexpr int kBytesAsDestination = 1;
}  // namespace mac

// VLAN (key: VLAN id as four hex digits).
namespace vlan {
inline constexpr int kBytes = 0;
inline constexpr int kBytesOnInput = 1;
inline constexpr int kBytesOnOutput = 2;
}  // namespace vlan

// APPID and USERID (key: a vendor's text).
namespace vendor_texts {
inline constexpr int kBytes = 0;
inline constexpr int kIntoHome = 1;
inline constexpr int kOutOfHome = 2;
inline constexpr int kTransit = 3;
inline constexpr int kWithinHome = 4;
inline constexpr int kFlows = 5;
}  // namespace vendor_texts

// LEFTOUT (key: of the exporter): how many records were not metered, by the reason. A record that
// is filtered, and every sample, has been marked before.
namespace left_out {
inline constexpr int kDuplicateEgress = 0;
inline constexpr int kZeroBytes = 1;
inline constexpr int kNoAddresses = 2;  // options data, for instance
inline constexpr int kFiltered = 3;
inline constexpr int kCorrupt = 4;
inline constexpr int kIpv6Sample = 5;
inline constexpr int kUndecodedSample = 6;
inline constexpr int kFragment = 7;
inline constexpr int kReverse = 8;       // no reason: the second direction of one record
inline constexpr int kNoFlowSample = 9;  // no record at all: a counters or a skipped sample
}  // namespace left_out

// A fixed key of AGGREGATES with its value under the host's key-hash function.
struct AggregateKey {
  const char* text;
  std::uint32_t hash;
};
inline constexpr AggregateKey kTotalBandwidth = {"TOTALBW", 0xCE94BC07};

// The way a flow takes with respect to the home networks, and what each group calls it.
struct Direction {
  AggregateKey aggregate;
  int apps_meter;          // APPS, NBAR
  int vendor_texts_meter;  // APPID, USERID
  const char* flow_tag;
};

// By whether the source is at home (2) and whether the destination is (1).
inline constexpr Direction kDirections[] = {
    {{"DIR_TRANSIT", 0xC7EB260B}, apps::kTransit, vendor_texts::kTransit, "[dir]transit"},
    {{"DIR_INTOHOME", 0xF69E2D0C}, apps::kIntoHome, vendor_texts::kIntoHome, "[dir]internet"},
    {{"DIR_OUTOFHOME", 0x33708C0D}, apps::kOutOfHome, vendor_texts::kOutOfHome, "[dir]internet"},
    {{"DIR_WITHINHOME", 0x8CB1E50E}, apps::kWithinHome, vendor_texts::kWithinHome, "[dir]internal"},
};

[[nodiscard]] constexpr const Direction& DirectionOf(bool source_home,
                                                     bool destination_home) noexcept {
  return kDirections[2 * unsigned{source_home} + unsigned{destination_home}];
}

}  // namespace flow
