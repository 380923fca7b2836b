// SPDX-License-Identifier: Apache-2.0
#include "host/base/number_text.h"

#include <fmt/format.h>

#include <cstdlib>
#include <ctime>
#include <string_view>

namespace flow::host {
namespace {

std::string InTwoUnits(std::int64_t large, std::string_view large_unit, std::int64_t small,
                       std::string_view small_unit) {
  if (small == 0) return fmt::format("{} {}", large, large_unit);
  return fmt::format("{} {} {} {}", large, large_unit, small, small_unit);
}

}  // namespace

std::string Thousands(std::uint64_t value) {
  std::string text = std::to_string(value);
  for (std::size_t at = text.size(); at > 3;) {
    at -= 3;
    text.insert(at, 1, ',');
  }
  return text;
}

std::string SiBytes(std::uint64_t bytes) {
  constexpr std::string_view kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return fmt::format("{} B", bytes);
  double value = static_cast<double>(bytes) / 1000;
  const std::string_view* unit = kUnits;
  // 999.5 would be rounded to 1000.
  for (; value >= 999.5 && unit + 1 != std::end(kUnits); ++unit) value /= 1000;
  const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f} {}", value, decimals, *unit);
}

std::string DurationText(std::int64_t milliseconds) {
  const std::int64_t seconds = milliseconds / 1000;
  if (milliseconds < 1000) return fmt::format("{} ms", milliseconds);
  if (seconds < 60) return fmt::format("{:.1f} s", static_cast<double>(milliseconds / 100) / 10);
  if (seconds < 3600) return InTwoUnits(seconds / 60, "min", seconds % 60, "s");
  if (seconds < 86400) return InTwoUnits(seconds / 3600, "h", seconds / 60 % 60, "min");
  return InTwoUnits(seconds / 86400, "d", seconds / 3600 % 24, "h");
}

std::string OffsetText(std::int64_t milliseconds) {
  return (milliseconds < 0 ? "-" : "+") + DurationText(std::abs(milliseconds));
}

std::string TimeText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  if (gmtime_r(&time, &parts) == nullptr) return fmt::format("{} s", seconds);
  char text[64] = "";
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

std::string Percent(std::uint64_t part, std::uint64_t whole) {
  if (whole == 0) return "-";
  return fmt::format("{:.1f}%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

}  // namespace flow::host
