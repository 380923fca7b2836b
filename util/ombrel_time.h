// SPDX-License-Identifier: Apache-2.0
// Wall-clock time as the host and its plug-ins print it.
#pragma once

#include <cstdint>
#include <string>

// A point in time; a plain value. All renderings are in local time; the long form is that of
// asctime, as in "Mon Nov 16 19:51:16 2026".
class __attribute__((visibility("default"))) COmbrelTime {
 public:
  std::int32_t tv_sec = 0;   // seconds since 1970, negative before
  std::int32_t tv_usec = 0;  // 0 to 999999

  void SetNow();
  [[nodiscard]] static COmbrelTime Now();
  [[nodiscard]] static std::int32_t now_tv_sec();

  [[nodiscard]] int hour_number() const;          // 0 to 23
  [[nodiscard]] std::string to_s() const;         // long form and microseconds: "...2026-000042"
  [[nodiscard]] std::string to_s_short() const;   // "19:51:16-000042"
  [[nodiscard]] std::string to_s_vshort() const;  // long form
  [[nodiscard]] std::string to_s_zone() const;    // long form and zone: "...2026 CET"
};
static_assert(sizeof(COmbrelTime) == 8);
