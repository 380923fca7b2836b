// SPDX-License-Identifier: Apache-2.0
// Points in time of captures and flows.
#pragma once

#include <cstdint>

namespace flow::host {

using Timestamp = std::int64_t;  // microseconds since 1970, UTC

inline constexpr std::int64_t kMicrosPerSecond = 1'000'000;

}  // namespace flow::host
