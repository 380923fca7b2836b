// SPDX-License-Identifier: Apache-2.0
// The status that nearly every operation of the plug-in's and the host's interfaces returns.
#pragma once

#include <cstdint>

using Status = std::uint32_t;  // 0 success, anything else names what went wrong

inline constexpr Status kStatusOk = 0;
inline constexpr Status kStatusNotSupported = 0x80000001;  // the component has no such operation
inline constexpr Status kStatusFailed = 0x80000002;        // bad datagram, policy not loaded
inline constexpr Status kStatusIndexRange = 0x80000003;    // index past the end
inline constexpr Status kStatusNullOutput = 0x80000004;    // an output pointer is null
inline constexpr Status kStatusNoInterface = 0x80000005;   // interface not offered
inline constexpr Status kStatusTooShort = 0x80000007;      // datagram too short to be claimed
