// SPDX-License-Identifier: Apache-2.0
// Bytes in the order of the wire, written piece by piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace flow::test {

using Bytes = std::vector<std::uint8_t>;

// An IPv4 address, from "192.0.2.1" or a number in host byte order. A bad text ends the program.
struct Ip4 {
  std::uint32_t value;
  Ip4(std::uint32_t host_order) : value(host_order) {}  // NOLINT(google-explicit-constructor)
  Ip4(const char* text);                                // NOLINT(google-explicit-constructor)
};

// Wire appends numbers big-endian.
class Wire {
 public:
  Wire& U8(std::uint8_t value) { return Number(1, value); }
  Wire& U16(std::uint16_t value) { return Number(2, value); }
  Wire& U32(std::uint32_t value) { return Number(4, value); }
  Wire& U64(std::uint64_t value) { return Number(8, value); }
  Wire& Number(std::size_t width, std::uint64_t value);  // the low width bytes; width may exceed 8
  Wire& Ip(Ip4 address) { return U32(address.value); }
  Wire& Ip6(const char* text);  // "2001:db8::1"
  Wire& Mac(const char* text);  // "00:1B:21:3A:4F:5C"
  Wire& Raw(std::span<const std::uint8_t> bytes);
  Wire& HexText(std::string_view digits);  // "00ff12"
  Wire& Zeros(std::size_t count) { return Number(count, 0); }
  // Text fills width bytes: cut, or filled up with NUL.
  Wire& Text(std::string_view text, std::size_t width);
  Wire& Text(std::string_view text) { return Text(text, text.size()); }
  // A variable-length field: a length of 1 byte, or the long form of 255 and 2 bytes, before the
  // text.
  Wire& Variable(std::string_view text);
  Wire& LongVariable(std::string_view text);

  // SetU16 changes a number that has been written.
  Wire& SetU16(std::size_t at, std::uint16_t value);

  std::size_t size() const { return bytes_.size(); }
  const Bytes& Get() const { return bytes_; }

 private:
  Bytes bytes_;
};

}  // namespace flow::test
