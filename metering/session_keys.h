// Session keys of the NetFlow meter: the texts that name conversations.
#pragma once

#include <cstdint>

#include "metering/counter_keys.h"

// Direction of a record within its session key: forward when the key's side A is the record's
// source.
enum FLOW_DIR_T { FLOW_DIR_FORWARD = 0, FLOW_DIR_REVERSE = 1 };

namespace flow {

// One side of an IPv6 session. The 16 address bytes are the caller's, in network order.
struct SessionSide6 {
  const std::uint8_t* host;
  std::uint16_t port;
  std::uint32_t ifindex;
};

// What the session keys of a meter depend on beside the flow.
struct SessionKeyRules {
  ServiceMerge merge;
  bool merge_sources;  // one key whatever exporter and interfaces saw the flow
  bool bidirectional;  // one key for both halves of a conversation
};

// WriteSessionKey writes the key of a flow between two sides and returns the direction of the
// source within it. The source is side A, unless the rules ask for one key for both halves: then
// side A is the one with the higher port, of equal ports the source when its address is the smaller
// one. A merged service's client so always comes first.
//
// The key has kSessionKeyLength or kSession6KeyLength characters.
FLOW_DIR_T WriteSessionKey(const SessionKeyRules& rules, std::uint8_t protocol, SessionSide source,
                           SessionSide destination, const Ipv4Key& exporter, char* out) noexcept;
FLOW_DIR_T WriteSessionKey(const SessionKeyRules& rules, std::uint8_t protocol, SessionSide6 source,
                           SessionSide6 destination, const Ipv4Key& exporter, char* out) noexcept;

}  // namespace flow
