// SPDX-License-Identifier: Apache-2.0
// Writes numbers in network order. The caller sees to it that there is room.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace flow::gen {

class WireWriter {
 public:
  explicit WireWriter(std::uint8_t* to) : begin_(to), at_(to) {}

  WireWriter& U8(std::uint8_t value) {
    *at_++ = value;
    return *this;
  }
  WireWriter& U16(std::uint16_t value) { return Number<2>(value); }
  WireWriter& U32(std::uint32_t value) { return Number<4>(value); }
  WireWriter& U64(std::uint64_t value) { return Number<8>(value); }
  WireWriter& Raw(std::span<const std::uint8_t> bytes) {
    at_ = std::copy(bytes.begin(), bytes.end(), at_);
    return *this;
  }
  WireWriter& Zeros(std::size_t count) {
    at_ = std::fill_n(at_, count, std::uint8_t{0});
    return *this;
  }
  WireWriter& PadTo4() { return Zeros((4 - Size() % 4) % 4); }

  [[nodiscard]] std::size_t Size() const { return static_cast<std::size_t>(at_ - begin_); }
  [[nodiscard]] std::uint8_t* At() const { return at_; }

 private:
  template <int size>
  WireWriter& Number(std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    // The number's bytes are the last ones now.
    std::memcpy(at_, reinterpret_cast<const std::uint8_t*>(&value) + (8 - size), size);
    at_ += size;
    return *this;
  }

  std::uint8_t* begin_;
  std::uint8_t* at_;
};

}  // namespace flow::gen
