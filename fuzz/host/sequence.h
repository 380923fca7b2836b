// SPDX-License-Identifier: Apache-2.0
// The steps of a run: an input of the datagram targets in which entries with bit 7 of their
// exporter are no datagrams. Of datagrams bit 2 says that they come over IPv6, bit 3 that they are
// sent to the port of sFlow.
#pragma once

#include <cstdint>

#include "fuzz/datagrams.h"

namespace flow::fuzz {

inline constexpr std::uint8_t kOverIpv6 = 4;
inline constexpr std::uint8_t kToSFlow = 8;
inline constexpr std::uint8_t kStep = 0x80;
inline bool IsStep(const Datagram& entry) { return (entry.exporter & kStep) != 0; }
inline bool IsSFlow(const Datagram& entry) {
  return !IsStep(entry) && (entry.exporter & kToSFlow) != 0;
}

// What an entry that is no datagram is, in its lowest three bits.
enum class Step : std::uint8_t {
  kMessage,        // on the channel of templates
  kDomainMessage,  // the same with a domain
  kClock,          // four bytes: seconds, forward or back
  kReload,         // a byte: the number of the new policy
  kHarvest,
  kReplaceMeters,
};
inline constexpr std::uint8_t kSteps = 8;  // the others are nothing

}  // namespace flow::fuzz
