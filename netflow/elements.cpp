#include "netflow/elements.h"

#include <algorithm>
#include <iterator>

namespace flow {
namespace {

constexpr std::int32_t kNoDefaultLength = -1;
constexpr char kUnknown[] = "Unknown";

struct Element {
  std::uint32_t id;
  std::int32_t default_length;
  Decode decode;
  const char* name;
};

// clang-format off
constexpr Element kElements[] = {
    {1, 4, Decode::kBytes, "IN_BYTES"},
    {2, 4, Decode::kPackets, "IN_PKTS"},
    {3, 4, Decode::kSkip, "FLOWS"},
    {4, 1, Decode::kProtocol, "PROTOCOL"},
    {5, 1, Decode::kSkip, "SRC_TOS"},
    {6, 1, Decode::kTcpFlags, "TCP_FLAGS"},
    {7, 2, Decode::kSourcePort, "L4_SRC_PORT"},
    {8, 4, Decode::kSourceAddress, "IPV4_SRC_ADDR"},
    {9, 1, Decode::kSourceMask, "SRC_MASK"},
    {10, 4, Decode::kInputInterface, "INPUT_SNMP"},
    {11, 2, Decode::kDestinationPort, "L4_DST_PORT"},
    {12, 4, Decode::kDestinationAddress, "IPV4_DST_ADDR"},
    {13, 1, Decode::kDestinationMask, "DST_MASK"},
    {14, 4, Decode::kOutputInterface, "OUTPUT_SNMP"},
    {15, 4, Decode::kNextHop, "IPV4_NEXT_HOP"},
    {16, 2, Decode::kSourceAs, "SRC_AS"},
    {17, 2, Decode::kDestinationAs, "DST_AS"},
    {18, 4, Decode::kBgpNextHop, "BGP_IPV4_NEXT_HOP"},
    {19, 4, Decode::kSkip, "MUL_DST_PKTS"},
    {20, 4, Decode::kSkip, "MUL_DST_BYTES"},
    {21, 4, Decode::kLastSwitched, "LAST_SWITCHED"},
    {22, 4, Decode::kFirstSwitched, "FIRST_SWITCHED"},
    {23, 4, Decode::kOutBytes, "OUT_BYTES"},
    {24, 4, Decode::kOutPackets, "OUT_PKTS"},
    {25, 4, Decode::kSkip, "MIN_PKT_LNGTH"},
    {26, 4, Decode::kSkip, "MAX_PKT_LNGTH"},
    {27, 16, Decode::kSourceAddress6, "IPV6_SRC_ADDR"},
    {28, 16, Decode::kDestinationAddress6, "IPV6_DST_ADDR"},
    {29, 1, Decode::kSourceMask, "IPV6_SRC_MASK"},
    {30, 1, Decode::kDestinationMask, "IPV6_DST_MASK"},
    {31, 3, Decode::kSkip, "IPV6_FLOW_LABEL"},
    {32, 2, Decode::kSkip, "ICMP_TYPE"},
    {33, 1, Decode::kSkip, "MUL_IGMP_TYPE"},
    {34, 4, Decode::kSamplingRate, "SAMPLING_INTERVAL"},
    {35, 1, Decode::kSkip, "SAMPLING_ALGORITHM"},
    {36, 2, Decode::kSkip, "FLOW_ACTIVE_TIMEOUT"},
    {37, 2, Decode::kSkip, "FLOW_INACTIVE_TIMEOUT"},
    {38, 1, Decode::kSkip, "ENGINE_TYPE"},
    {39, 1, Decode::kSkip, "ENGINE_ID"},
    {40, 4, Decode::kSkip, "TOTAL_BYTES_EXP"},
    {41, 4, Decode::kSkip, "TOTAL_PKTS_EXP"},
    {42, 4, Decode::kSkip, "TOTAL_FLOWS_EXP"},
    {43, kNoDefaultLength, Decode::kSkip, "Vendor_Proprietary_43"},
    {44, kNoDefaultLength, Decode::kSkip, "IPV4_SRC_PREFIX"},
    {45, kNoDefaultLength, Decode::kSkip, "IPV4_DST_PREFIX"},
    {46, 1, Decode::kSkip, "MPLS_TOP_LABEL_TYPE"},
    {47, 4, Decode::kSkip, "MPLS_TOP_LABEL_IP_ADDR"},
    {48, 1, Decode::kSkip, "FLOW_SAMPLER_ID"},
    {49, 1, Decode::kSkip, "FLOW_SAMPLER_MODE"},
    {50, 4, Decode::kSkip, "FLOW_SAMPLER_RANDOM_INTERVAL"},
    {51, kNoDefaultLength, Decode::kSkip, " Vendor_Proprietary_51"},
    {52, kNoDefaultLength, Decode::kSkip, " MIN_TTL_52"},
    {53, kNoDefaultLength, Decode::kSkip, " MAX_TTL_53"},
    {54, kNoDefaultLength, Decode::kSkip, " IPV4_IDENT"},
    {55, 1, Decode::kSkip, " DST_TOS"},
    {56, 6, Decode::kSourceMac, " IN_SRC_MAC"},
    {57, 6, Decode::kDestinationMac, " OUT_DST_MAC"},
    {58, 2, Decode::kSourceVlan, " SRC_VLAN"},
    {59, 2, Decode::kDestinationVlan, " DST_VLAN"},
    {60, 1, Decode::kIpVersion, " IP_PROTOCOL_VERSION"},
    {61, 1, Decode::kDirection, " DIRECTION"},
    {62, 16, Decode::kSkip, " IPV6_NEXT_HOP"},
    {63, 16, Decode::kSkip, " BPG_IPV6_NEXT_HOP"},
    {64, 4, Decode::kSkip, " IPV6_OPTION_HEADERS"},
    {65, kNoDefaultLength, Decode::kSkip, " Vendor_Proprietary_65"},
    {66, kNoDefaultLength, Decode::kSkip, " Vendor_Proprietary_66"},
    {67, kNoDefaultLength, Decode::kSkip, "Vendor_Proprietary_67"},
    {68, kNoDefaultLength, Decode::kSkip, "Vendor_Proprietary_68"},
    {69, kNoDefaultLength, Decode::kSkip, "Vendor_Proprietary_69"},
    {70, 3, Decode::kSkip, "MPLS_LABEL_1"},
    {71, 3, Decode::kSkip, "MPLS_LABEL_2"},
    {72, 3, Decode::kSkip, "MPLS_LABEL_3"},
    {73, 3, Decode::kSkip, "MPLS_LABEL_4"},
    {74, 3, Decode::kSkip, "MPLS_LABEL_5"},
    {75, 3, Decode::kSkip, "MPLS_LABEL_6"},
    {76, 3, Decode::kSkip, "MPLS_LABEL_7"},
    {77, 3, Decode::kSkip, "MPLS_LABEL_8"},
    {78, 3, Decode::kSkip, "MPLS_LABEL_9"},
    {79, 3, Decode::kSkip, "MPLS_LABEL_10"},
    {80, kNoDefaultLength, Decode::kSkip, "IN_DST_MAC"},
    {81, kNoDefaultLength, Decode::kSkip, "OUT_SRC_MAC"},
    {82, kNoDefaultLength, Decode::kInterfaceName, "IF_NAME"},
    {83, kNoDefaultLength, Decode::kInterfaceDescription, "IF_DESC"},
    {84, kNoDefaultLength, Decode::kSkip, "SAMPLER_NAME"},
    {85, kNoDefaultLength, Decode::kBytes, "IN_PERMANENT_BYTES"},
    {86, kNoDefaultLength, Decode::kPackets, "IN_PERMANENT_PKTS"},
    {87, kNoDefaultLength, Decode::kSkip, "Vendor_Proprietary_87"},
    {88, kNoDefaultLength, Decode::kSkip, "FRAGMENT_OFFSET"},
    {89, kNoDefaultLength, Decode::kSkip, "FORWARDING_STATUS"},
    {94, kNoDefaultLength, Decode::kApplicationDescription, "NBAR_applicationDesc"},
    {95, kNoDefaultLength, Decode::kApplicationId, "NBAR_applicationID"},
    {96, kNoDefaultLength, Decode::kApplicationName, "NBAR_applicationName"},
    {136, 1, Decode::kFlowEndReason, "flowEndReason"},
    {148, 8, Decode::kSkip, "flowID"},
    {150, kNoDefaultLength, Decode::kStartSeconds, "flowStartSecs"},
    {151, kNoDefaultLength, Decode::kEndSeconds, "flowEndSecs"},
    {152, 8, Decode::kStartMilliseconds, "flowStartMs"},
    {153, 8, Decode::kEndMilliseconds, "flowEndMs"},
    {210, 1, Decode::kSkip, kUnknown},
    {225, 4, Decode::kPostNatSourceAddress, "postNATSourceIPv4Address"},
    {226, 4, Decode::kPostNatDestinationAddress, "postNATDesitnationIPv4Address"},
    {227, 2, Decode::kSkip, "postNATSourceIPv4Port"},
    {228, 2, Decode::kSkip, "postNATDestIPv4Port"},
    {231, kNoDefaultLength, Decode::kForwardDeltaBytes, "NF_F_FWD_FLOW_DELTA_BYTES"},
    {232, kNoDefaultLength, Decode::kReverseDeltaBytes, "NF_F_REV_FLOW_DELTA_BYTES"},
    {233, 1, Decode::kSkip, "firewallEvent"},
    {234, kNoDefaultLength, Decode::kIngressVrf, "ingressVRFID"},
    {235, kNoDefaultLength, Decode::kSkip, "egressVRFID"},
    {236, kNoDefaultLength, Decode::kSkip, "VRFname"},
    {288, kNoDefaultLength, Decode::kSkip, "p2p technology"},
    {289, kNoDefaultLength, Decode::kSkip, "tunnel technology"},
    {290, kNoDefaultLength, Decode::kSkip, "encrypted technology"},
    {302, 4, Decode::kSkip, "selectorID"},
    {304, 2, Decode::kSkip, "selectorAlgorithm"},
    {305, 4, Decode::kSamplingRate, "samplingPacketInterval"},
    {323, kNoDefaultLength, Decode::kLastSwitched, kUnknown},
    {346, 4, Decode::kEnterpriseNumber, "privateEnterpriseNumber"},
    {15610, kNoDefaultLength, Decode::kSkip, "Scope-0"},
    {15611, kNoDefaultLength, Decode::kSkip, "Scope-System"},
    {15612, kNoDefaultLength, Decode::kSkip, "Scope-Interface"},
    {15613, kNoDefaultLength, Decode::kSkip, "Scope-Line-Card"},
    {15614, kNoDefaultLength, Decode::kSkip, "Scope-Netflow_Cache"},
    {15615, kNoDefaultLength, Decode::kSkip, "Scope-Template"},
    {32769, kNoDefaultLength, Decode::kReverseBytes, "Rev Type 1 Bytes"},
    {32770, kNoDefaultLength, Decode::kReversePackets, "Rev Type 2 Packets"},
    {32859, 2, Decode::kSkip, kUnknown},
    {32860, 2, Decode::kSkip, kUnknown},
    {32861, 65535, Decode::kVariableText, kUnknown},
    {45000, kNoDefaultLength, Decode::kSkip, "application category"},
    {45001, kNoDefaultLength, Decode::kSkip, "application sub category"},
    {45002, kNoDefaultLength, Decode::kSkip, "application group"},
    {56701, 32, Decode::kVendorAppId, "paloAltoAppID"},
    {56702, 64, Decode::kVendorUserId, "paloAltoUserID"},
};
// clang-format on

constexpr bool AscendsStrictly() {
  for (std::size_t i = 1; i < std::size(kElements); ++i) {
    if (kElements[i - 1].id >= kElements[i].id) return false;
  }
  return true;
}
static_assert(AscendsStrictly(), "kElements: ascending ids, none twice");

constexpr Element kNoElement = {0, kNoDefaultLength, Decode::kSkip, kUnknown};

const Element& Find(std::uint32_t id) noexcept {
  const Element* const row = std::lower_bound(
      std::begin(kElements), std::end(kElements), id,
      [](const Element& element, std::uint32_t value) { return element.id < value; });
  return row != std::end(kElements) && row->id == id ? *row : kNoElement;
}

}  // namespace

const char* GetFieldCode(std::uint32_t id) noexcept { return Find(id).name; }

int GetDefaultLengthForAttribute(int id) noexcept {
  return Find(static_cast<std::uint32_t>(id)).default_length;
}

Decode DecodeOf(std::uint32_t id) noexcept { return Find(id).decode; }

}  // namespace flow
