// SPDX-License-Identifier: Apache-2.0
// Globally unique identifiers, as the host compares and hands them over.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

// 16 bytes in the usual layout: the first three members are little-endian numbers, the last eight
// bytes stand as written. Two identifiers are equal when all 16 bytes are.
struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];

  friend bool operator==(const GUID& a, const GUID& b) noexcept {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
  }
};
static_assert(sizeof(GUID) == 16 && alignof(GUID) == 4);

using IID = GUID;    // names an interface, a protocol or a component class
using CLSID = GUID;  // names a component class

// What MakeGuid calls for a text of another form. No constant can be made with it, since it is no
// constexpr function, and nothing else links, since it is defined nowhere.
void GuidHas36UpperCaseDigitsAndHyphens();

// MakeGuid turns the registry form "4CD742B1-C1CA-4708-BE78-0FCA2EB01A86" into the identifier, as
// the value of a constexpr variable. A text of another form does not compile.
constexpr GUID MakeGuid(std::string_view text) {
  if (text.size() != 36) GuidHas36UpperCaseDigitsAndHyphens();
  std::uint8_t bytes[16] = {};
  int digits = 0;
  for (int i = 0; i < 36; ++i) {
    const char c = text[static_cast<std::size_t>(i)];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') GuidHas36UpperCaseDigitsAndHyphens();
      continue;
    }
    int digit = 0;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      GuidHas36UpperCaseDigitsAndHyphens();
    }
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | digit);
    ++digits;
  }
  GUID guid{};
  guid.Data1 = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
               std::uint32_t{bytes[2]} << 8 | bytes[3];
  guid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}
