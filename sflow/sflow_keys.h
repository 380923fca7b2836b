// Keys that the sFlow meter writes in a form of its own. All numbers are in host byte order.
#pragma once

#include "metering/session_keys.h"

namespace flow {

// A merged session shows no exporter. Its interface numbers have four digits here, unlike those of
// the NetFlow meter: hosts have stored their flows under these keys for years.
inline constexpr char kMergedExporterPart[] = "00.00.00.00_0000_0000";

// WriteVlanKey writes a VLAN number as at least four hexadecimal digits. A switch may send any 32
// bits for one.
inline char* WriteVlanKey(std::uint32_t vlan, char* out) noexcept {
  if (vlan <= 0xFFFF) {
    out = PutHex16(static_cast<std::uint16_t>(vlan), out);
    *out = '\0';
    return out;
  }
  char digits[9];
  char* const end = OmbrelAPI::Long2Hex(vlan, digits);
  const char* first = digits;
  while (*first == '0') ++first;
  const auto length = static_cast<std::size_t>(end - first);
  std::memcpy(out, first, length + 1);
  return out + length;
}

// A pair of MAC addresses, "00:1B:21:3A:4F:5C ->00:1B:21:3A:4F:5D", and its two halves.
inline constexpr char kMacPairArrow[] = " ->";
inline constexpr std::size_t kMacPairArrowLength = sizeof(kMacPairArrow) - 1;
inline constexpr std::size_t kMacPairKeyLength = 2 * kMacKeyLength + kMacPairArrowLength;

}  // namespace flow
