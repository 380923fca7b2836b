// SPDX-License-Identifier: Apache-2.0
#include "keys/network_keys.h"

#include <cstring>

#include "util/address_text.h"
#include "util/bytes.h"

namespace flow {
namespace {

char* EndPrefixKey(std::uint8_t prefix_length, char* out) noexcept {
  *out = '/';
  out = PutOctet(prefix_length, out + 1);
  *out = '\0';
  return out;
}

// 64 bits in network order, the first `length` of them set; length is below 64.
std::uint64_t Mask64(unsigned length) noexcept { return BigEndian(~(~std::uint64_t{0} >> length)); }

}  // namespace

char* MakeAsKey(std::uint32_t as_number, char* out) noexcept {
  const auto number = static_cast<std::int32_t>(as_number);
  out = number < 0 ? PutSignedDecimal(number, out) : PutShortDecimal(as_number, out);
  *out = '\0';
  return out;
}

char* MakePrefix4Key(std::uint32_t address, std::uint8_t prefix_length, char* out) noexcept {
  if (prefix_length == 0) {
    address = 0;
  } else if (prefix_length < 32) {
    address &= ~std::uint32_t{0} << (32 - prefix_length);
  }
  return EndPrefixKey(prefix_length, PutDottedIpv4(address, out));
}

char* MakePrefix6Key(const std::uint8_t* address, std::uint8_t prefix_length, char* out) noexcept {
  std::uint64_t halves[2];
  std::memcpy(halves, address, sizeof(halves));
  if (prefix_length < 64) {
    halves[0] &= Mask64(prefix_length);
    halves[1] = 0;
  } else if (prefix_length < 128) {
    halves[1] &= Mask64(prefix_length - 64U);
  }
  std::uint8_t prefix[16];
  std::memcpy(prefix, halves, sizeof(prefix));
  return EndPrefixKey(prefix_length, PutIpv6Text(prefix, out));
}

}  // namespace flow
