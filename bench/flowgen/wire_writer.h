// Writes numbers in network order. The caller sees to it that there is room.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace flow::gen {

class WireWriter {
 public:
  explicit WireWriter(std::uint8_t* to) : begin_(to), at_(to) {}

  WireWriter& U8(std::uint8_t value) {
    *at_++ = value;
    return *this;
  }
  WireWriter& U16(std::uint16_t value) { return Number(value, 2); }
  WireWriter& U32(std::uint32_t value) { return Number(value, 4); }
  WireWriter& U64(std::uint64_t value) { return Number(value, 8); }
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
  WireWriter& Number(std::uint64_t value, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      *at_++ = static_cast<std::uint8_t>(value >> shift);
    }
    return *this;
  }

  std::uint8_t* begin_;
  std::uint8_t* at_;
};

}  // namespace flow::gen
