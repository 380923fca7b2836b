// IP addresses as people read them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace flow {

inline constexpr std::size_t kIpv4TextSize = 16;  // with the NUL
inline constexpr std::size_t kIpv6TextSize = 46;

// PutDecimal writes an unsigned number without a NUL and returns the position behind it.
char* PutDecimal(std::uint64_t value, char* out) noexcept;

// PutSignedDecimal is PutDecimal for a number with a sign.
char* PutSignedDecimal(std::int64_t value, char* out) noexcept;

// PutDottedIpv4 writes an address (host byte order) in dotted decimal, without a NUL.
char* PutDottedIpv4(std::uint32_t address, char* out) noexcept;

// PutIpv6Text writes 16 address bytes exactly as inet_ntop does, many times as fast, without a NUL.
char* PutIpv6Text(const std::uint8_t* address, char* out) noexcept;

}  // namespace flow
