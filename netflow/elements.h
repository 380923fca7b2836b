// The information elements of NetFlow v9 and IPFIX that the meter knows: their names, the lengths
// that they have by default, and what is decoded of them. Sources: RFC 3954, IANA's registry of
// IPFIX information elements, and vendors' descriptions of their private elements.
#pragma once

#include <cstdint>

namespace flow {

// What a decoder does with the value of a field.
enum class Decode : std::uint8_t {
  kSkip,
  kBytes,
  kPackets,
  kOutBytes,
  kOutPackets,
  kReverseBytes,
  kReversePackets,
  kForwardDeltaBytes,
  kReverseDeltaBytes,
  kProtocol,
  kTcpFlags,
  kFlowEndReason,
  kSourcePort,
  kDestinationPort,
  kSourceAddress,
  kDestinationAddress,
  kPostNatSourceAddress,
  kPostNatDestinationAddress,
  kSourceMask,
  kDestinationMask,
  kInputInterface,
  kOutputInterface,
  kNextHop,
  kBgpNextHop,
  kSourceAs,
  kDestinationAs,
  kFirstSwitched,
  kLastSwitched,
  kStartSeconds,
  kEndSeconds,
  kStartMilliseconds,
  kEndMilliseconds,
  kSourceAddress6,
  kDestinationAddress6,
  kSourceMac,
  kDestinationMac,
  kSourceVlan,
  kDestinationVlan,
  kIpVersion,
  kDirection,
  kInterfaceName,
  kInterfaceDescription,
  kApplicationDescription,
  kApplicationName,
  kApplicationId,
  kIngressVrf,
  kSamplingRate,
  kEnterpriseNumber,
  kVendorAppId,
  kVendorUserId,
  kVariableText,
};

// Scope fields of a v9 options template are kept apart from elements: their types begin here.
inline constexpr std::uint32_t kScopeTypeBase = 15610;

// GetFieldCode is the display name of an element, "Unknown" for one without. In IPFIX the
// enterprise bit (0x8000) is part of the id.
[[nodiscard]] const char* GetFieldCode(std::uint32_t id) noexcept;

// GetDefaultLengthForAttribute is the length in bytes that a template has for an element when it
// names none, 65535 for a variable length. -1 means that such a template cannot hold the element.
[[nodiscard]] int GetDefaultLengthForAttribute(int id) noexcept;

// DecodeOf is what is decoded of an element.
[[nodiscard]] Decode DecodeOf(std::uint32_t id) noexcept;

}  // namespace flow
