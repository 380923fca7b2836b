// SPDX-License-Identifier: Apache-2.0
// IP addresses as people read them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace flow {

inline constexpr std::size_t kIpv4TextSize = 16;  // with the NUL
inline constexpr std::size_t kIpv6TextSize = 46;

// PutDecimal writes an unsigned number without a NUL and returns the position behind it.
char* PutDecimal(std::uint64_t value, char* out) noexcept;

// PutShortDecimal is PutDecimal for numbers that mostly have few digits. It may change 12 bytes at
// `out`.
char* PutShortDecimal(std::uint32_t value, char* out) noexcept;

// PutSignedDecimal is PutDecimal for a number with a sign.
char* PutSignedDecimal(std::int64_t value, char* out) noexcept;

// PutOctet writes a number of up to three digits without a NUL. It may change four bytes at `out`.
char* PutOctet(std::uint8_t octet, char* out) noexcept;

// PutDottedIpv4 writes an address (host byte order) in dotted decimal, without a NUL. It may change
// kIpv4TextSize bytes at `out`, however short the text is.
char* PutDottedIpv4(std::uint32_t address, char* out) noexcept;

// PutIpv6Text writes 16 address bytes exactly as inet_ntop does, many times as fast, without a NUL.
// It may change kIpv6TextSize bytes at `out`.
char* PutIpv6Text(const std::uint8_t* address, char* out) noexcept;

}  // namespace flow
