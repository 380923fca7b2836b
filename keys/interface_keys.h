// SPDX-License-Identifier: Apache-2.0
// Interface keys as policy files have them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "flowhandlers/counter_keys.h"

namespace flow {

// ParseIntfKey gives exporter (upper half) and ifIndex of an interface key; none when no meter
// would ever make that text.
[[nodiscard]] std::optional<std::uint64_t> ParseIntfKey(std::string_view text) noexcept;

// MakeLooseIntfKey writes the interface key of an exporter given as four numbers. One that is no
// octet has as many digits as it needs, so that the text is no interface's.
inline constexpr std::size_t kLooseIntfKeySize = 4 * 9 + 8 + 1;  // with the NUL
char* MakeLooseIntfKey(const std::array<int, 4>& exporter, std::uint32_t ifindex,
                       char* out) noexcept;

}  // namespace flow
