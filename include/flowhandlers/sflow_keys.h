// SPDX-License-Identifier: Apache-2.0
// Keys that the sFlow meter writes in a form of its own. All numbers are in host byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "flowhandlers/counter_keys.h"
#include "flowhandlers/session_keys.h"

namespace flow {

// MakeVlanKey writes a VLAN number as at least four hexadecimal digits. A switch may send any 32
// bits for one.
inline char* MakeVlanKey(std::uint32_t vlan, char* out) noexcept {
  out = vlan <= 0xFFFF ? PutHex16(static_cast<std::uint16_t>(vlan), out) : PutHexDigits(vlan, out);
  *out = '\0';
  return out;
}

// A pair of MAC addresses, "00:1B:21:3A:4F:5C ->00:1B:21:3A:4F:5D", and its two halves.
inline constexpr char kMacPairArrow[] = " ->";
inline constexpr std::size_t kMacPairArrowLength = sizeof(kMacPairArrow) - 1;
inline constexpr std::size_t kMacPairKeyLength = 2 * kMacKeyLength + kMacPairArrowLength;

// MakeAgentIntfKey names an interface by its agent's key, of IPv4 or IPv6, and its ifIndex there.
inline char* MakeAgentIntfKey(const char* agent_key, std::size_t length, std::uint32_t ifindex,
                              char* out) noexcept {
  std::memcpy(out, agent_key, length);
  out[length] = '_';
  return OmbrelAPI::Long2Hex(ifindex, out + length + 1);
}

// ReplaceExporter gives a session key of the given length an exporter of IPv6, by its key.
inline void ReplaceExporter(const char* exporter_key, std::size_t key_length, char* key) noexcept {
  constexpr std::size_t kInterfacesLength = 18;  // _0000000A_00000002
  char interfaces[kInterfacesLength + 1];
  std::memcpy(interfaces, key + key_length - kInterfacesLength, sizeof(interfaces));
  char* const exporter = key + key_length - kInterfacesLength - kIpv4KeyLength;
  std::memcpy(exporter, exporter_key, kIpv6KeyLength);
  std::memcpy(exporter + kIpv6KeyLength, interfaces, sizeof(interfaces));
}

// Session keys of IPv4; those of IPv6 are the NetFlow meter's. They differ from the NetFlow meter's
// in two ways that stored flows rely on: the exporter part of merged sources has four digits for
// each interface, and in the key of both directions side A is the one with the smaller address,
// whatever the ports.
namespace sflow {

inline constexpr char kMergedExporter[] = "00.00.00.00_0000_0000";

[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey(const SessionKeyRules& rules,
                                                        const Conversation& flow, bool reverse,
                                                        char* out) noexcept {
  SessionSide source = flow.source;
  SessionSide destination = flow.destination;
  MergeServicePorts(rules.merge, &source.port, &destination.port);
  return WriteSessionOf<Ipv4Session>(rules, flow, source, destination, reverse, kMergedExporter,
                                     out);
}

[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_Uni(const SessionKeyRules& rules,
                                                            const Conversation& flow,
                                                            char* out) noexcept {
  return MakeSessionKey(rules, flow, false, out);
}

// The addresses are those of the two sides.
[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_Bi(const SessionKeyRules& rules,
                                                           const Conversation& flow,
                                                           std::uint32_t source,
                                                           std::uint32_t destination,
                                                           char* out) noexcept {
  return MakeSessionKey(rules, flow, source >= destination, out);
}

}  // namespace sflow
}  // namespace flow
