// SPDX-License-Identifier: Apache-2.0
#include "netflow/elements.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "netflow/special_fields.h"

namespace flow {
namespace {

constexpr std::int32_t kNone = -1;
constexpr char kUnknown[] = "Unknown";

// What is stored of a number or an address is what its member has room for.
template <class Member>
consteval FieldKind KindOf() {
  if (std::is_same_v<Member, std::uint8_t>) return FieldKind::kNumber8;
  if (std::is_same_v<Member, std::uint16_t>) return FieldKind::kNumber16;
  if (std::is_same_v<Member, std::uint32_t>) return FieldKind::kNumber32;
  if (std::is_same_v<Member, std::uint64_t>) return FieldKind::kNumber64;
  if (std::is_same_v<Member, std::uint8_t[6]>) return FieldKind::kBytes6;
  if (std::is_same_v<Member, std::uint8_t[16]>) return FieldKind::kBytes16;
  return FieldKind::kSkipped;
}

// Kinds that store a number in another form than it came in.
template <class Member>
consteval bool Suits(FieldKind kind) {
  if (kind == FieldKind::kSeconds || kind == FieldKind::kMilliseconds) {
    return std::is_same_v<Member, std::uint32_t>;
  }
  return kind == KindOf<Member>() && kind != FieldKind::kSkipped;
}

template <class Member>
consteval FieldPlace Into(FieldKind kind, std::size_t offset, int presence = 0) {
  if (!Suits<Member>(kind)) throw "a member has no room for what is stored there";
  return {kind, static_cast<std::uint16_t>(presence), static_cast<std::uint16_t>(offset), nullptr};
}

consteval FieldPlace Special(SpecialDecoder decode, std::size_t offset = 0) {
  return {FieldKind::kSpecial, 0, static_cast<std::uint16_t>(offset), decode};
}

// How the rows of the table say where a value goes: TO a member; AS a kind into a member; BY a
// decoder for that member; WITH a decoder that stores or asks that member. Presence bits may follow
// a member.
#define MEMBER(member) decltype(FlowRecord::member)
#define TO(member, ...)                          \
  Into<MEMBER(member)>(KindOf<MEMBER(member)>(), \
                       offsetof(FlowRecord, member) __VA_OPT__(, ) __VA_ARGS__)
#define AS(kind, member, ...) \
  Into<MEMBER(member)>(FieldKind::kind, offsetof(FlowRecord, member) __VA_OPT__(, ) __VA_ARGS__)
#define BY(decoder, member) Special(decoder<&FlowRecord::member>, offsetof(FlowRecord, member))
#define WITH(decoder, member) Special(decoder, offsetof(FlowRecord, member))

// The dump of templates shows these names as they are, and operators' scripts look for them there:
// no blank in front of 51 to 66 and no spelling is a mistake that may be mended.
// clang-format off
constexpr Element kElements[] = {
    {0, kNone, kUnknown},  // stands for all that are not here
    {1, 4, "IN_BYTES", TO(bytes)},
    {2, 4, "IN_PKTS", TO(packets)},
    {3, 4, "FLOWS"},
    {4, 1, "PROTOCOL", TO(protocol)},
    {5, 1, "SRC_TOS"},
    {6, 1, "TCP_FLAGS", TO(tcp_flags)},
    {7, 2, "L4_SRC_PORT", TO(src_port, kSourcePortSeen)},
    {8, 4, "IPV4_SRC_ADDR", TO(src_addr, kSourceAddressSeen)},
    {9, 1, "SRC_MASK", TO(src_mask)},
    {10, 4, "INPUT_SNMP", TO(in_ifindex, kInputInterfaceSeen)},
    {11, 2, "L4_DST_PORT", TO(dst_port, kDestinationPortSeen)},
    {12, 4, "IPV4_DST_ADDR", TO(dst_addr, kDestinationAddressSeen)},
    {13, 1, "DST_MASK", TO(dst_mask)},
    {14, 4, "OUTPUT_SNMP", TO(out_ifindex, kOutputInterfaceSeen)},
    {15, 4, "IPV4_NEXT_HOP", TO(ip_nexthop)},
    {16, 2, "SRC_AS", TO(src_as)},
    {17, 2, "DST_AS", TO(dst_as)},
    {18, 4, "BGP_IPV4_NEXT_HOP", TO(bgp_nexthop)},
    {19, 4, "MUL_DST_PKTS"},
    {20, 4, "MUL_DST_BYTES"},
    {21, 4, "LAST_SWITCHED", TO(last)},
    {22, 4, "FIRST_SWITCHED", TO(first, kFirstSwitchedSeen)},
    {23, 4, "OUT_BYTES", BY(DecodeOutCount, rev_bytes)},
    {24, 4, "OUT_PKTS", BY(DecodeOutCount, rev_packets)},
    {25, 4, "MIN_PKT_LNGTH"},
    {26, 4, "MAX_PKT_LNGTH"},
    {27, 16, "IPV6_SRC_ADDR", TO(src_addr6, kIpv6AddressSeen | kSourceAddressSeen)},
    {28, 16, "IPV6_DST_ADDR", TO(dst_addr6, kIpv6AddressSeen | kDestinationAddressSeen)},
    {29, 1, "IPV6_SRC_MASK", TO(src_mask)},
    {30, 1, "IPV6_DST_MASK", TO(dst_mask)},
    {31, 3, "IPV6_FLOW_LABEL"},
    {32, 2, "ICMP_TYPE"},
    {33, 1, "MUL_IGMP_TYPE"},
    {34, 4, "SAMPLING_INTERVAL", Special(DecodeSamplingRate)},
    {35, 1, "SAMPLING_ALGORITHM"},
    {36, 2, "FLOW_ACTIVE_TIMEOUT"},
    {37, 2, "FLOW_INACTIVE_TIMEOUT"},
    {38, 1, "ENGINE_TYPE"},
    {39, 1, "ENGINE_ID"},
    {40, 4, "TOTAL_BYTES_EXP"},
    {41, 4, "TOTAL_PKTS_EXP"},
    {42, 4, "TOTAL_FLOWS_EXP"},
    {43, kNone, "Vendor_Proprietary_43"},
    {44, kNone, "IPV4_SRC_PREFIX"},
    {45, kNone, "IPV4_DST_PREFIX"},
    {46, 1, "MPLS_TOP_LABEL_TYPE"},
    {47, 4, "MPLS_TOP_LABEL_IP_ADDR"},
    {48, 1, "FLOW_SAMPLER_ID"},
    {49, 1, "FLOW_SAMPLER_MODE"},
    {50, 4, "FLOW_SAMPLER_RANDOM_INTERVAL"},
    {51, kNone, " Vendor_Proprietary_51"},
    {52, kNone, " MIN_TTL_52"},
    {53, kNone, " MAX_TTL_53"},
    {54, kNone, " IPV4_IDENT"},
    {55, 1, " DST_TOS"},
    {56, 6, " IN_SRC_MAC", TO(src_mac, kExtrasSeen)},
    {57, 6, " OUT_DST_MAC", TO(dst_mac, kExtrasSeen)},
    {58, 2, " SRC_VLAN", TO(src_vlan)},
    {59, 2, " DST_VLAN", TO(dst_vlan)},
    {60, 1, " IP_PROTOCOL_VERSION", TO(ip_version)},
    {61, 1, " DIRECTION", TO(direction)},
    {62, 16, " IPV6_NEXT_HOP"},
    {63, 16, " BPG_IPV6_NEXT_HOP"},
    {64, 4, " IPV6_OPTION_HEADERS"},
    {65, kNone, " Vendor_Proprietary_65"},
    {66, kNone, " Vendor_Proprietary_66"},
    {67, kNone, "Vendor_Proprietary_67"},
    {68, kNone, "Vendor_Proprietary_68"},
    {69, kNone, "Vendor_Proprietary_69"},
    {70, 3, "MPLS_LABEL_1"},
    {71, 3, "MPLS_LABEL_2"},
    {72, 3, "MPLS_LABEL_3"},
    {73, 3, "MPLS_LABEL_4"},
    {74, 3, "MPLS_LABEL_5"},
    {75, 3, "MPLS_LABEL_6"},
    {76, 3, "MPLS_LABEL_7"},
    {77, 3, "MPLS_LABEL_8"},
    {78, 3, "MPLS_LABEL_9"},
    {79, 3, "MPLS_LABEL_10"},
    {80, kNone, "IN_DST_MAC"},
    {81, kNone, "OUT_SRC_MAC"},
    {82, kNone, "IF_NAME", BY(DecodeText, if_name)},
    {83, kNone, "IF_DESC", BY(DecodeText, if_desc)},
    {84, kNone, "SAMPLER_NAME"},
    {85, kNone, "IN_PERMANENT_BYTES", TO(bytes)},
    {86, kNone, "IN_PERMANENT_PKTS", TO(packets)},
    {87, kNone, "Vendor_Proprietary_87"},
    {88, kNone, "FRAGMENT_OFFSET"},
    {89, kNone, "FORWARDING_STATUS"},
    {94, kNone, "NBAR_applicationDesc", Special(DecodeApplicationText<&DecodeState::AppDescText>)},
    {95, kNone, "NBAR_applicationID", Special(DecodeApplicationId)},
    {96, kNone, "NBAR_applicationName", Special(DecodeApplicationText<&DecodeState::AppNameText>)},
    {136, 1, "flowEndReason", WITH(DecodeFlowEndReason, tcp_flags)},
    {148, 8, "flowID"},
    // Not the units that these have in IPFIX: the flows that hosts keep have the times that come out.
    {150, kNone, "flowStartSecs", AS(kSeconds, first)},
    {151, kNone, "flowEndSecs", AS(kSeconds, last)},
    {152, 8, "flowStartMs", AS(kMilliseconds, first)},
    {153, 8, "flowEndMs", AS(kMilliseconds, last)},
    {210, 1, kUnknown},
    {225, 4, "postNATSourceIPv4Address", BY(DecodePostNatAddress, src_addr)},
    {226, 4, "postNATDesitnationIPv4Address", BY(DecodePostNatAddress, dst_addr)},
    {227, 2, "postNATSourceIPv4Port"},
    {228, 2, "postNATDestIPv4Port"},
    {231, kNone, "NF_F_FWD_FLOW_DELTA_BYTES", BY(DecodeLargestCount, rev_bytes)},
    {232, kNone, "NF_F_REV_FLOW_DELTA_BYTES", BY(DecodeLargestCount, bytes)},
    {233, 1, "firewallEvent"},
    {234, kNone, "ingressVRFID", Special(DecodeIngressVrf)},
    {235, kNone, "egressVRFID"},
    {236, kNone, "VRFname"},
    {288, kNone, "p2p technology"},
    {289, kNone, "tunnel technology"},
    {290, kNone, "encrypted technology"},
    {302, 4, "selectorID"},
    {304, 2, "selectorAlgorithm"},
    {305, 4, "samplingPacketInterval", Special(DecodePacketInterval)},
    {306, kNone, kUnknown, Special(DecodePacketSpace)},  // samplingPacketSpace, RFC 5477
    {323, kNone, kUnknown, TO(last)},
    {346, 4, "privateEnterpriseNumber", TO(enterprise_id)},
    {15610, kNone, "Scope-0"},
    {15611, kNone, "Scope-System"},
    {15612, kNone, "Scope-Interface"},
    {15613, kNone, "Scope-Line-Card"},
    {15614, kNone, "Scope-Netflow_Cache"},
    {15615, kNone, "Scope-Template"},
    {32769, kNone, "Rev Type 1 Bytes", TO(rev_bytes)},
    {32770, kNone, "Rev Type 2 Packets", TO(rev_packets)},
    {32859, 2, kUnknown},
    {32860, 2, kUnknown},
    {32861, 65535, kUnknown, Special(DecodeVariableText)},
    {45000, kNone, "application category"},
    {45001, kNone, "application sub category"},
    {45002, kNone, "application group"},
    {56701, 32, "paloAltoAppID", WITH(DecodeVendorAppId, enterprise_id)},
    {56702, 64, "paloAltoUserID", WITH(DecodeVendorUserId, enterprise_id)},
};
// clang-format on

static_assert(std::ranges::adjacent_find(kElements, std::ranges::greater_equal(), &Element::id) ==
                  std::end(kElements),
              "kElements: ascending ids, none twice");
static_assert(offsetof(FlowRecord, has_times) == 0, "what lies at 0 is no element's");
static_assert(std::size(kElements) <= 0x10000, "rows are numbers of 16 bits");

}  // namespace

std::span<const Element> Elements() noexcept { return kElements; }

std::uint16_t RowOf(std::uint32_t id) noexcept {
  const Element* const row = std::ranges::lower_bound(kElements, id, {}, &Element::id);
  if (row == std::end(kElements) || row->id != id) return 0;
  return static_cast<std::uint16_t>(row - std::begin(kElements));
}

const FieldPlace& PlaceAt(std::uint16_t row) noexcept { return kElements[row].place; }

const char* GetFieldCode(std::uint32_t id) noexcept { return kElements[RowOf(id)].name; }

int GetDefaultLengthForAttribute(int id) noexcept {
  return kElements[RowOf(static_cast<std::uint32_t>(id))].default_length;
}

}  // namespace flow
