// SPDX-License-Identifier: Apache-2.0
#include "tests/support/wire.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>

namespace flow::test {
namespace {

[[noreturn]] void Stop(const char* what, std::string_view text) {
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(text.size()), text.data());
  std::abort();
}

std::uint8_t HexByte(std::string_view text, std::size_t at) {
  unsigned int byte = 0;
  for (std::size_t i = at; i < at + 2; ++i) {
    const char c = i < text.size() ? text[i] : '?';
    const std::string_view digits = "0123456789abcdef0123456789ABCDEF";
    const std::size_t digit = digits.find(c);
    if (digit == std::string_view::npos) Stop("no hexadecimal bytes", text);
    byte = byte << 4 | (digit & 15);
  }
  return static_cast<std::uint8_t>(byte);
}

}  // namespace

Ip4::Ip4(const char* text) {
  in_addr parsed;
  if (inet_pton(AF_INET, text, &parsed) != 1) Stop("no IPv4 address", text);
  value = ntohl(parsed.s_addr);
}

Wire& Wire::Number(std::size_t width, std::uint64_t value) {
  for (std::size_t i = width; i-- > 0;) {
    bytes_.push_back(i < 8 ? static_cast<std::uint8_t>(value >> (8 * i)) : std::uint8_t{0});
  }
  return *this;
}

Wire& Wire::Ip6(const char* text) {
  std::uint8_t address[16];
  if (inet_pton(AF_INET6, text, address) != 1) Stop("no IPv6 address", text);
  return Raw(address);
}

Wire& Wire::Mac(const char* text) {
  for (std::size_t i = 0; i < 6; ++i) U8(HexByte(text, 3 * i));
  return *this;
}

Wire& Wire::Raw(std::span<const std::uint8_t> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

Wire& Wire::HexText(std::string_view digits) {
  for (std::size_t i = 0; i < digits.size(); i += 2) U8(HexByte(digits, i));
  return *this;
}

Wire& Wire::Text(std::string_view text, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    U8(i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0});
  }
  return *this;
}

Wire& Wire::Variable(std::string_view text) {
  if (text.size() > 254) Stop("too long for a short variable-length field", text);
  return U8(static_cast<std::uint8_t>(text.size())).Text(text);
}

Wire& Wire::LongVariable(std::string_view text) {
  return U8(255).U16(static_cast<std::uint16_t>(text.size())).Text(text);
}

Wire& Wire::SetU16(std::size_t at, std::uint16_t value) {
  bytes_.at(at) = static_cast<std::uint8_t>(value >> 8);
  bytes_.at(at + 1) = static_cast<std::uint8_t>(value);
  return *this;
}

}  // namespace flow::test
