// SPDX-License-Identifier: Apache-2.0
// What a meter tells about records that it does not meter, or not just once: the updates of a group
// that is no counter of traffic. Meters tell it with the policy switch CountLeftOut alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "flowhandlers/guid.h"

namespace flow::host {

inline constexpr GUID kLeftOutGroup = MakeGuid("5D0C8B1E-3C52-4F0B-9E37-6A1D4C9F27B8");

// The group's meters.
enum class MeterWord : std::uint8_t {
  kDuplicateEgress,
  kZeroBytes,
  kNoAddresses,
  kFiltered,
  kCorrupt,
  kIpv6Sample,
  kUndecodedSample,
  kFragment,
  kReverse,       // the second direction of a record that was metered
  kNoFlowSample,  // a counter sample, or one that was skipped: no record at all
};
inline constexpr std::size_t kMeterWords = 10;

// How often each was said about a datagram.
using MeterWords = std::array<std::uint64_t, kMeterWords>;

}  // namespace flow::host
