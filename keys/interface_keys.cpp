// SPDX-License-Identifier: Apache-2.0
#include "keys/interface_keys.h"

namespace flow {
namespace {

// The value of upper-case hexadecimal digits alone; none for any other text.
std::optional<std::uint32_t> ParseHex(std::string_view digits) {
  std::uint32_t value = 0;
  for (const char c : digits) {
    if (c >= '0' && c <= '9') {
      value = value << 4 | static_cast<std::uint32_t>(c - '0');
    } else if (c >= 'A' && c <= 'F') {
      value = value << 4 | static_cast<std::uint32_t>(c - 'A' + 10);
    } else {
      return std::nullopt;
    }
  }
  return value;
}

}  // namespace

std::optional<std::uint64_t> ParseIntfKey(std::string_view text) noexcept {
  if (text.size() != kInterfaceKeyLength || text[2] != '.' || text[5] != '.' || text[8] != '.' ||
      text[11] != '_') {
    return std::nullopt;
  }
  std::uint64_t key = 0;
  for (const std::size_t at : {0U, 3U, 6U, 9U}) {
    const auto octet = ParseHex(text.substr(at, 2));
    if (!octet) return std::nullopt;
    key = key << 8 | *octet;
  }
  const auto ifindex = ParseHex(text.substr(12));
  if (!ifindex) return std::nullopt;
  return key << 32 | *ifindex;
}

char* MakeLooseIntfKey(const std::array<int, 4>& exporter, std::uint32_t ifindex,
                       char* out) noexcept {
  for (const int number : exporter) {
    out = PutHexDigits(static_cast<std::uint32_t>(number), out);
    *out++ = '.';
  }
  out[-1] = '_';
  return OmbrelAPI::Long2Hex(ifindex, out);
}

}  // namespace flow
