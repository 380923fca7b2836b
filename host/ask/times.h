// SPDX-License-Identifier: Apache-2.0
// Points in time and spans as people say them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace flow::host {

// Where the clock on the wall is: here, or in Greenwich. Times are seconds since 1970.
class Zone {
 public:
  explicit Zone(bool is_utc = false) : is_utc_(is_utc) {}

  // A date and what the clock shows on it.
  struct Clock {
    int year = 0;
    int month = 1;  // from 1
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
  };
  // The clock at a time, and the time at a clock; days beyond the month's last are of the next.
  [[nodiscard]] Clock At(std::int64_t time) const;
  [[nodiscard]] std::int64_t Time(const Clock& clock) const;

  // When the day began in which a time is; other days by their distance.
  [[nodiscard]] std::int64_t DayStart(std::int64_t time, int days = 0) const;

  // "2026-11-25 02:00", with seconds where there are any.
  [[nodiscard]] std::string Text(std::int64_t time) const;
  // "02:00"
  [[nodiscard]] std::string ClockText(std::int64_t time) const;
  // "CET"
  [[nodiscard]] std::string Name(std::int64_t time) const;

 private:
  bool is_utc_;
};

// From its start to before its end.
struct TimeSpan {
  std::int64_t from = 0;
  std::int64_t to = 0;

  [[nodiscard]] std::int64_t Seconds() const { return to - from; }
  friend bool operator==(const TimeSpan&, const TimeSpan&) = default;
};

// "2026-11-25 02:00 to 03:00 CET"
std::string SpanText(const TimeSpan& span, const Zone& zone);

// What was said of a span; empty texts for what was not said.
struct SpanWords {
  std::string from;
  std::string to;
};

// ResolveSpan throws UsageError. Words for times are "now", "-1h", "02:00" (the last one that was),
// "yesterday", "today 02:00", "2026-11-24", "2026-11-24 22:00" and "@1795564800". A day without a
// clock time is all of it, up to now. Without a start the span has the usual length; without an
// end, what a day is or up to now. An end of clock time alone is the first one behind the start.
TimeSpan ResolveSpan(const SpanWords& words, std::int64_t usual_seconds, std::int64_t now,
                     const Zone& zone);

// ResolveAgainst gives the span of the same length that another is compared with: on another day at
// the same time ("yesterday", "2026-11-20"), or from a point in time ("-48h").
TimeSpan ResolveAgainst(const std::string& text, const TimeSpan& span, std::int64_t now,
                        const Zone& zone);

// ParseLength reads "300", "5m", "1h", "1d" as seconds; nothing where it is none.
std::optional<std::int64_t> ParseLength(std::string_view text);

}  // namespace flow::host
