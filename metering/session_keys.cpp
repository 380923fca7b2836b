#include "metering/session_keys.h"

#include <cstring>
#include <utility>

namespace flow {
namespace {

// The hexadecimal digits of an address sort as the address does.
bool IsSmaller(const SessionSide& a, const SessionSide& b) noexcept {
  return std::memcmp(a.host.text, b.host.text, kIpv4KeyLength) < 0;
}
bool IsSmaller(const SessionSide6& a, const SessionSide6& b) noexcept {
  return std::memcmp(a.host, b.host, 16) < 0;
}

char* PutSessionSides(std::uint8_t protocol, const SessionSide6& a, const SessionSide6& b,
                      char* out) noexcept {
  out = PutHex8(protocol, out);
  *out++ = 'D';
  *out++ = ':';
  for (const SessionSide6* side : {&a, &b}) {
    out = OmbrelAPI::IP62Hex(side->host, out);
    std::memcpy(out, ":p-", 3);
    out = PutHex16(side->port, out + 3);
    *out++ = '_';
  }
  return out;
}

template <class Side>
FLOW_DIR_T Write(const SessionKeyRules& rules, std::uint8_t protocol, Side& a, Side& b,
                 const Ipv4Key& exporter, char* out) noexcept {
  FLOW_DIR_T direction = FLOW_DIR_FORWARD;
  MergeServicePorts(rules.merge, &a.port, &b.port);
  if (rules.bidirectional && (a.port < b.port || (a.port == b.port && !IsSmaller(a, b)))) {
    direction = FLOW_DIR_REVERSE;
    std::swap(a, b);
  }
  out = PutSessionSides(protocol, a, b, out);
  if (rules.merge_sources) {
    WriteText("00.00.00.00_00000000_00000000", out);
  } else {
    WriteExporterPart(exporter, a.ifindex, b.ifindex, out);
  }
  return direction;
}

}  // namespace

FLOW_DIR_T WriteSessionKey(const SessionKeyRules& rules, std::uint8_t protocol, SessionSide source,
                           SessionSide destination, const Ipv4Key& exporter, char* out) noexcept {
  return Write(rules, protocol, source, destination, exporter, out);
}

FLOW_DIR_T WriteSessionKey(const SessionKeyRules& rules, std::uint8_t protocol, SessionSide6 source,
                           SessionSide6 destination, const Ipv4Key& exporter, char* out) noexcept {
  return Write(rules, protocol, source, destination, exporter, out);
}

}  // namespace flow
