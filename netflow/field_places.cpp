#include "netflow/field_places.h"

#include <array>
#include <cstddef>

#include "netflow/data_record.h"
#include "netflow/field_decoder.h"

namespace flow {
namespace {

struct Row {
  Decode decode;
  FieldPlace place;
};

using enum Decode;
using enum FieldKind;

constexpr Row kRows[] = {
    {kBytes, {kLow32, 0, offsetof(nf9_record, bytes)}},
    {kPackets, {kLow32, 0, offsetof(nf9_record, packets)}},
    {kOutBytes, {kOther, 0, offsetof(nf9_record, rev_bytes)}},
    {kOutPackets, {kOther, 0, offsetof(nf9_record, rev_packets)}},
    {kReverseBytes, {kNumber64, 0, offsetof(nf9_record, rev_bytes)}},
    {kReversePackets, {kNumber64, 0, offsetof(nf9_record, rev_packets)}},
    {kForwardDeltaBytes, {kOther, 0, offsetof(nf9_record, rev_bytes)}},
    {kReverseDeltaBytes, {kOther, 0, offsetof(nf9_record, bytes)}},
    {kProtocol, {kNumber8, 0, offsetof(nf9_record, protocol)}},
    {kTcpFlags, {kNumber8, 0, offsetof(nf9_record, tcp_flags)}},
    {kFlowEndReason, {kOther, 0, offsetof(nf9_record, tcp_flags)}},
    {kSourcePort, {kNumber16, kSourcePortSeen, offsetof(nf9_record, src_port)}},
    {kDestinationPort, {kNumber16, kDestinationPortSeen, offsetof(nf9_record, dst_port)}},
    {kSourceAddress, {kNumber32, kSourceAddressSeen, offsetof(nf9_record, src_addr)}},
    {kDestinationAddress, {kNumber32, kDestinationAddressSeen, offsetof(nf9_record, dst_addr)}},
    {kPostNatSourceAddress, {kOther, 0, offsetof(nf9_record, src_addr)}},
    {kPostNatDestinationAddress, {kOther, 0, offsetof(nf9_record, dst_addr)}},
    {kSourceMask, {kNumber8, 0, offsetof(nf9_record, src_mask)}},
    {kDestinationMask, {kNumber8, 0, offsetof(nf9_record, dst_mask)}},
    {kInputInterface, {kNumber32, kInputInterfaceSeen, offsetof(nf9_record, in_ifindex)}},
    {kOutputInterface, {kNumber32, kOutputInterfaceSeen, offsetof(nf9_record, out_ifindex)}},
    {kNextHop, {kNumber32, 0, offsetof(nf9_record, ip_nexthop)}},
    {kBgpNextHop, {kNumber32, 0, offsetof(nf9_record, bgp_nexthop)}},
    {kSourceAs, {kNumber32, 0, offsetof(nf9_record, src_as)}},
    {kDestinationAs, {kNumber32, 0, offsetof(nf9_record, dst_as)}},
    {kFirstSwitched, {kNumber32, kFirstSwitchedSeen, offsetof(nf9_record, first)}},
    {kLastSwitched, {kNumber32, 0, offsetof(nf9_record, last)}},
    {kStartSeconds, {kSeconds, 0, offsetof(nf9_record, first)}},
    {kEndSeconds, {kSeconds, 0, offsetof(nf9_record, last)}},
    {kStartMilliseconds, {kMilliseconds, 0, offsetof(nf9_record, first)}},
    {kEndMilliseconds, {kMilliseconds, 0, offsetof(nf9_record, last)}},
    {kSourceAddress6,
     {kBytes16, kIpv6AddressSeen | kSourceAddressSeen, offsetof(nf9_record, src_addr6)}},
    {kDestinationAddress6,
     {kBytes16, kIpv6AddressSeen | kDestinationAddressSeen, offsetof(nf9_record, dst_addr6)}},
    {kSourceMac, {kBytes6, 0, offsetof(nf9_record, src_mac)}},
    {kDestinationMac, {kBytes6, 0, offsetof(nf9_record, dst_mac)}},
    {kSourceVlan, {kNumber16, 0, offsetof(nf9_record, src_vlan)}},
    {kDestinationVlan, {kNumber16, 0, offsetof(nf9_record, dst_vlan)}},
    {kIpVersion, {kNumber8, 0, offsetof(nf9_record, ip_version)}},
    {kDirection, {kNumber8, 0, offsetof(nf9_record, direction)}},
    {kEnterpriseNumber, {kNumber32, 0, offsetof(nf9_record, enterprise_id)}},
    {kVendorAppId, {kOther, 0, offsetof(nf9_record, enterprise_id)}},
    {kVendorUserId, {kOther, 0, offsetof(nf9_record, enterprise_id)}},
};

constexpr auto kPlaces = [] {
  std::array<FieldPlace, static_cast<std::size_t>(kVariableText) + 1> places{};
  for (const Row& row : kRows) places[static_cast<std::size_t>(row.decode)] = row.place;
  return places;
}();

}  // namespace

const FieldPlace& PlaceOf(Decode decode) noexcept {
  return kPlaces[static_cast<std::size_t>(decode)];
}

}  // namespace flow
