// SPDX-License-Identifier: Apache-2.0
// Big-endian numbers in captured bytes.
#pragma once

#include <cstdint>

namespace flow::host {

// The caller has checked that the bytes are there.
constexpr std::uint16_t Be16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}
constexpr std::uint32_t Be32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

}  // namespace flow::host
