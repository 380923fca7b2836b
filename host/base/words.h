// SPDX-License-Identifier: Apache-2.0
// Words as people type them.
#pragma once

#include <algorithm>
#include <string_view>

namespace flow::host {

constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// SameWord compares without regard to the case of ASCII letters.
constexpr bool SameWord(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, LowerCase, LowerCase);
}

}  // namespace flow::host
