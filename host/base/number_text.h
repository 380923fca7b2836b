// SPDX-License-Identifier: Apache-2.0
// Numbers and times as people read them.
#pragma once

#include <cstdint>
#include <string>

#include "host/base/timestamp.h"

namespace flow::host {

// "1,234,567".
std::string Thousands(std::uint64_t value);

// "999 B", "1.23 MB": three digits and a decimal unit.
std::string SiBytes(std::uint64_t bytes);

// "850 ms", "12.3 s", "5 min 2 s", "3 h 7 min", "2 d 4 h".
std::string DurationText(std::int64_t milliseconds);

// "+1.2 s", "-3 h 7 min": how far a clock is ahead.
std::string OffsetText(std::int64_t milliseconds);

// "2024-05-01 10:00:00" in UTC.
std::string TimeText(std::int64_t seconds);

// "12.3%", or "-" of nothing.
std::string Percent(std::uint64_t part, std::uint64_t whole);

}  // namespace flow::host
