// SPDX-License-Identifier: Apache-2.0
// Session keys: the texts that name conversations. All numbers are in host byte order; writers
// follow the rules of flowhandlers/counter_keys.h. The sFlow meter's are in
// flowhandlers/sflow_keys.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "flowhandlers/counter_keys.h"

// Direction of a record within its session key: forward when the key's side A is the record's
// source.
enum FLOW_DIR_T { FLOW_DIR_FORWARD = 0, FLOW_DIR_REVERSE = 1 };

namespace flow {

inline constexpr std::size_t kSessionKeyLength = 71;    // IPv4
inline constexpr std::size_t kSession6KeyLength = 113;  // IPv6

// Which services have their clients' ports merged into one.
struct ServiceMerge {
  bool http;
  bool https;
  bool dns;

  [[nodiscard]] bool Covers(std::uint16_t port) const noexcept {
    return (port == 80 && http) || (port == 443 && https) || (port == 53 && dns);
  }
};

// The ports of a session as its key shows them and orders its sides by: for a merged service the
// client's port is 65535, "FFFF". The source is looked at first.
inline constexpr std::uint16_t kMergedClientPort = 0xFFFF;
[[gnu::always_inline]] inline void MergeServicePorts(const ServiceMerge& merge,
                                                     std::uint16_t* source_port,
                                                     std::uint16_t* destination_port) noexcept {
  if (merge.Covers(*source_port)) {
    *destination_port = kMergedClientPort;
  } else if (merge.Covers(*destination_port)) {
    *source_port = kMergedClientPort;
  }
}

// One side of a session. The host's key is the caller's; it needs no NUL.
struct SessionSide {
  const char* host;
  std::uint16_t port;
  std::uint32_t ifindex;
};

// What the keys of IPv4 and IPv6 sessions look like in front of the exporter.
struct Ipv4Session {
  static constexpr std::size_t kHostLength = kIpv4KeyLength;
  static constexpr char kForm[] = "00C:00.00.00.00:p-0000_00.00.00.00:p-0000_";
};
struct Ipv6Session {
  static constexpr std::size_t kHostLength = kIpv6KeyLength;
  static constexpr char kForm[] =
      "00D:00000000000000000000000000000000:p-0000_00000000000000000000000000000000:p-0000_";
};

// PutSessionSides writes the part of a session key in front of the exporter: protocol, kind and
// both sides, up to and with the "_" before the exporter part.
template <class Session>
[[gnu::always_inline]] inline char* PutSessionSides(std::uint8_t protocol, const SessionSide& a,
                                                    const SessionSide& b, char* out) noexcept {
  constexpr std::size_t kLength = sizeof(Session::kForm) - 1;
  constexpr std::size_t kHostAt = 4;
  constexpr std::size_t kPortAt = kHostAt + Session::kHostLength + 3;
  constexpr std::size_t kSideLength = Session::kHostLength + 8;
  CopyFixed<kLength>(Session::kForm, out);
  PutHex8(protocol, out);
  CopyFixed<Session::kHostLength>(a.host, out + kHostAt);
  PutHex16(a.port, out + kPortAt);
  CopyFixed<Session::kHostLength>(b.host, out + kHostAt + kSideLength);
  PutHex16(b.port, out + kPortAt + kSideLength);
  return out + kLength;
}

// WriteExporterPart ends a session key with the exporter and the interfaces of both sides.
inline char* WriteExporterPart(const Ipv4Key& exporter, std::uint32_t first_ifindex,
                               std::uint32_t second_ifindex, char* out) noexcept {
  CopyFixed<kIpv4KeyLength>(exporter.text, out);
  out[kIpv4KeyLength] = '_';
  out = PutHex32(first_ifindex, out + kIpv4KeyLength + 1);
  *out = '_';
  return OmbrelAPI::Long2Hex(second_ifindex, out + 1);
}

// What session keys depend on beside the flow.
struct SessionKeyRules {
  ServiceMerge merge;
  bool merge_sources;  // one key whatever exporter and interfaces saw the flow
};

// A flow as its key names it.
struct Conversation {
  std::uint8_t protocol;
  SessionSide source;
  SessionSide destination;
  const Ipv4Key& exporter;
};

// WriteSession writes a key with side A first; `merged` ends the keys of merged sources.
template <class Session, std::size_t N>
[[gnu::always_inline]] inline void WriteSession(const SessionKeyRules& rules,
                                                const Conversation& flow, const SessionSide& a,
                                                const SessionSide& b, const char (&merged)[N],
                                                char* out) noexcept {
  out = PutSessionSides<Session>(flow.protocol, a, b, out);
  if (rules.merge_sources) {
    WriteText(merged, out);
  } else {
    WriteExporterPart(flow.exporter, a.ifindex, b.ifindex, out);
  }
}

// WriteSessionOf writes a key with the source first, or in reverse the destination. The code is
// there twice, so that in each of them compilers know where the sides are: a choice would be made
// for every part of a side.
template <class Session, std::size_t N>
[[gnu::always_inline]] inline FLOW_DIR_T WriteSessionOf(
    const SessionKeyRules& rules, const Conversation& flow, const SessionSide& source,
    const SessionSide& destination, bool reverse, const char (&merged)[N], char* out) noexcept {
  if (reverse) {
    WriteSession<Session>(rules, flow, destination, source, merged, out);
    return FLOW_DIR_REVERSE;
  }
  WriteSession<Session>(rules, flow, source, destination, merged, out);
  return FLOW_DIR_FORWARD;
}

inline constexpr char kMergedExporter[] = "00.00.00.00_00000000_00000000";

// In a key of one direction the source is side A.
template <class Session>
[[gnu::always_inline]] inline FLOW_DIR_T WriteOneWaySession(const SessionKeyRules& rules,
                                                            const Conversation& flow,
                                                            char* out) noexcept {
  SessionSide source = flow.source;
  SessionSide destination = flow.destination;
  MergeServicePorts(rules.merge, &source.port, &destination.port);
  return WriteSessionOf<Session>(rules, flow, source, destination, false, kMergedExporter, out);
}

// In the one key of both directions side A is the one with the higher port, of equal ports the
// source when its address is the smaller one. A merged service's client so always comes first.
template <class Session>
[[gnu::always_inline]] inline FLOW_DIR_T WriteTwoWaySession(const SessionKeyRules& rules,
                                                            const Conversation& flow,
                                                            char* out) noexcept {
  SessionSide source = flow.source;
  SessionSide destination = flow.destination;
  MergeServicePorts(rules.merge, &source.port, &destination.port);
  // The hexadecimal digits of an address sort as the address does.
  const bool reverse = source.port < destination.port ||
                       (source.port == destination.port &&
                        std::memcmp(source.host, destination.host, Session::kHostLength) >= 0);
  return WriteSessionOf<Session>(rules, flow, source, destination, reverse, kMergedExporter, out);
}

// The NetFlow meter's keys, of kSessionKeyLength or kSession6KeyLength characters. The result is
// the direction of the source within the key. Always inlined: handing over rules and sides costs
// half as much as writing the key.
[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_Uni(const SessionKeyRules& rules,
                                                            const Conversation& flow,
                                                            char* out) noexcept {
  return WriteOneWaySession<Ipv4Session>(rules, flow, out);
}
[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_Bi(const SessionKeyRules& rules,
                                                           const Conversation& flow,
                                                           char* out) noexcept {
  return WriteTwoWaySession<Ipv4Session>(rules, flow, out);
}
[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_IPv6_Uni(const SessionKeyRules& rules,
                                                                 const Conversation& flow,
                                                                 char* out) noexcept {
  return WriteOneWaySession<Ipv6Session>(rules, flow, out);
}
[[gnu::always_inline]] inline FLOW_DIR_T MakeSessionKey_IPv6_Bi(const SessionKeyRules& rules,
                                                                const Conversation& flow,
                                                                char* out) noexcept {
  return WriteTwoWaySession<Ipv6Session>(rules, flow, out);
}

}  // namespace flow
