// SPDX-License-Identifier: Apache-2.0
#include "host/base/printable.h"

#include <fmt/format.h>

#include <cstdint>

namespace flow::host {
namespace {

// How many bytes the character at the front has; 0 where it is none, or a control character.
std::size_t CharacterSize(std::string_view text) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return first >= ' ' && first != 0x7F ? 1 : 0;
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  std::uint32_t code = first & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3FU);
  }
  constexpr std::uint32_t kLeast[] = {0xA0, 0x800, 0x10000};  // below are C1 and longer spellings
  const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < kLeast[size - 2] || code > 0x10FFFF || is_surrogate ? 0 : size;
}

}  // namespace

std::string Utf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    if (size > 0) {
      out += text.substr(0, size);
    } else {
      out += fmt::format("\\x{:02X}", static_cast<unsigned char>(text.front()));
    }
    text.remove_prefix(size > 0 ? size : 1);
  }
  return out;
}

std::string Printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (c >= ' ' && c <= '~') {
      out.push_back(c);
    } else {
      out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
    }
  }
  return out;
}

}  // namespace flow::host
