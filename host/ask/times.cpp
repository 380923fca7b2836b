// SPDX-License-Identifier: Apache-2.0
#include "host/ask/times.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>

#include "host/base/error.h"
#include "host/base/words.h"

namespace flow::host {
namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 86400;

// What a word for a time means: a point, or the whole of a day.
struct Moment {
  std::int64_t at = 0;
  bool is_day = false;
  std::optional<Zone::Clock> clock;  // where it was a clock time alone
};

// Takes digits off the front; false where there are not so many.
bool TakeNumber(std::string_view* text, std::size_t digits, int* number) {
  if (text->size() < digits) return false;
  const char* const end = text->data() + digits;
  const auto [stop, error] = std::from_chars(text->data(), end, *number);
  if (error != std::errc() || stop != end || *number < 0) return false;
  text->remove_prefix(digits);
  return true;
}

bool Take(std::string_view* text, std::string_view front) {
  if (!SameWord(text->substr(0, front.size()), front)) return false;
  text->remove_prefix(front.size());
  return true;
}

// "02:00" or "2:00", "02:00:30"; nothing may follow.
bool ParseClock(std::string_view text, Zone::Clock* clock) {
  const std::size_t hour_digits = text.find(':') == 1 ? 1 : 2;
  if (!TakeNumber(&text, hour_digits, &clock->hour) || !Take(&text, ":") ||
      !TakeNumber(&text, 2, &clock->minute)) {
    return false;
  }
  clock->second = 0;
  if (!text.empty() && (!Take(&text, ":") || !TakeNumber(&text, 2, &clock->second))) return false;
  const bool is_midnight = clock->hour == 24 && clock->minute == 0 && clock->second == 0;
  return text.empty() && (clock->hour < 24 || is_midnight) && clock->minute < 60 &&
         clock->second < 60;
}

// "2026-11-24"; what follows stays in the text.
bool TakeDate(std::string_view* text, Zone::Clock* clock) {
  if (!TakeNumber(text, 4, &clock->year) || !Take(text, "-") ||
      !TakeNumber(text, 2, &clock->month) || !Take(text, "-") ||
      !TakeNumber(text, 2, &clock->day)) {
    return false;
  }
  return clock->month >= 1 && clock->month <= 12 && clock->day >= 1 && clock->day <= 31;
}

// A day, alone or with a clock time behind it.
std::optional<Moment> ParseDay(std::string_view text, std::int64_t now, Zone zone) {
  Zone::Clock clock;
  if (Take(&text, "today")) {
    clock = zone.At(zone.DayStart(now));
  } else if (Take(&text, "yesterday")) {
    clock = zone.At(zone.DayStart(now, -1));
  } else if (!TakeDate(&text, &clock)) {
    return std::nullopt;
  }
  clock.hour = clock.minute = clock.second = 0;
  if (zone.At(zone.Time(clock)).day != clock.day) return std::nullopt;  // the 30th of February
  if (text.empty()) return Moment{zone.Time(clock), true, {}};
  if (!Take(&text, " ") && !Take(&text, "T")) return std::nullopt;
  if (text.ends_with('Z')) {
    zone = Zone(true);
    text.remove_suffix(1);
  }
  if (!ParseClock(text, &clock)) return std::nullopt;
  return Moment{zone.Time(clock), false, {}};
}

std::optional<Moment> ParseMoment(std::string_view text, std::int64_t now, const Zone& zone) {
  if (SameWord(text, "now")) return Moment{now, false, {}};
  if (text.starts_with('-')) {
    const auto ago = ParseLength(text.substr(1));
    return ago ? std::optional(Moment{now - *ago, false, {}}) : std::nullopt;
  }
  if (text.starts_with('@')) {
    std::int64_t at = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 1, end, at);
    if (error != std::errc() || stop != end || at < 0) return std::nullopt;
    return Moment{at, false, {}};
  }
  Zone::Clock clock = zone.At(now);
  if (!ParseClock(text, &clock)) return ParseDay(text, now, zone);
  Moment moment{zone.Time(clock), false, clock};
  if (moment.at > now) {
    --clock.day;
    moment.at = zone.Time(clock);
  }
  return moment;
}

Moment ParseOrThrow(std::string_view option, const std::string& text, std::int64_t now,
                    const Zone& zone) {
  if (const auto moment = ParseMoment(text, now, zone)) return *moment;
  throw UsageError(
      fmt::format("{}: '{}' is no time such as 02:00, -1h, yesterday, today 02:00, "
                  "2026-11-24 or 2026-11-24 22:00",
                  option, text));
}

// The first time behind another at which the clock shows this.
std::int64_t NextClock(std::int64_t time, const Zone::Clock& shown, const Zone& zone) {
  Zone::Clock clock = zone.At(time);
  clock.hour = shown.hour;
  clock.minute = shown.minute;
  clock.second = shown.second;
  if (zone.Time(clock) <= time) ++clock.day;
  return zone.Time(clock);
}

std::int64_t EndOf(const SpanWords& words, const Moment& from, std::int64_t now, const Zone& zone) {
  if (words.to.empty()) return from.is_day ? std::min(zone.DayStart(from.at, 1), now) : now;
  const Moment to = ParseOrThrow("--to", words.to, now, zone);
  if (to.clock && !words.from.empty()) return NextClock(from.at, *to.clock, zone);
  return to.is_day ? std::min(zone.DayStart(to.at, 1), now) : to.at;
}

}  // namespace

Zone::Clock Zone::At(std::int64_t time) const {
  const std::time_t seconds = time;
  std::tm parts{};
  is_utc_ ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts);
  return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
          parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

std::int64_t Zone::Time(const Clock& clock) const {
  std::tm parts{};
  parts.tm_year = clock.year - 1900;
  parts.tm_mon = clock.month - 1;
  parts.tm_mday = clock.day;
  parts.tm_hour = clock.hour;
  parts.tm_min = clock.minute;
  parts.tm_sec = clock.second;
  parts.tm_isdst = -1;
  return is_utc_ ? timegm(&parts) : mktime(&parts);
}

std::int64_t Zone::DayStart(std::int64_t time, int days) const {
  const Clock clock = At(time);
  return Time({clock.year, clock.month, clock.day + days});
}

std::string Zone::Text(std::int64_t time) const {
  const Clock clock = At(time);
  return fmt::format("{:04}-{:02}-{:02} {}", clock.year, clock.month, clock.day, ClockText(time));
}

std::string Zone::ClockText(std::int64_t time) const {
  const Clock clock = At(time);
  std::string text = fmt::format("{:02}:{:02}", clock.hour, clock.minute);
  if (clock.second != 0) text += fmt::format(":{:02}", clock.second);
  return text;
}

std::string Zone::Name(std::int64_t time) const {
  if (is_utc_) return "UTC";
  const std::time_t seconds = time;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::array<char, 32> name{};
  std::strftime(name.data(), name.size(), "%Z", &parts);
  return name.data();
}

std::string SpanText(const TimeSpan& span, const Zone& zone) {
  const bool is_one_day = zone.DayStart(span.from) == zone.DayStart(span.to - 1);
  const bool is_midnight = zone.DayStart(span.to) == span.to;
  std::string end = zone.Text(span.to);
  if (is_one_day) end = is_midnight ? "24:00" : zone.ClockText(span.to);
  return fmt::format("{} to {} {}", zone.Text(span.from), end, zone.Name(span.from));
}

TimeSpan ResolveSpan(const SpanWords& words, std::int64_t usual_seconds, std::int64_t now,
                     const Zone& zone) {
  TimeSpan span{now - usual_seconds, now};
  if (!words.from.empty()) {
    const Moment from = ParseOrThrow("--from", words.from, now, zone);
    span = {from.at, EndOf(words, from, now, zone)};
  } else if (!words.to.empty()) {
    span.to = EndOf(words, {}, now, zone);
    span.from = span.to - usual_seconds;
  }
  if (span.from >= span.to) {
    throw UsageError(fmt::format("the span ends, {}, before it begins, {}", zone.Text(span.to),
                                 zone.Text(span.from)));
  }
  return span;
}

TimeSpan ResolveAgainst(const std::string& text, const TimeSpan& span, std::int64_t now,
                        const Zone& zone) {
  const Moment start = ParseOrThrow("--against", text, now, zone);
  std::int64_t from = start.at;
  if (start.is_day) {
    Zone::Clock clock = zone.At(span.from);
    const Zone::Clock day = zone.At(start.at);
    clock.year = day.year;
    clock.month = day.month;
    clock.day = day.day;
    from = zone.Time(clock);
  }
  return {from, from + span.Seconds()};
}

std::optional<std::int64_t> ParseLength(std::string_view text) {
  struct TimeUnit {
    std::string_view name;
    std::int64_t seconds;
  };
  constexpr TimeUnit kUnits[] = {{"", 1},      {"s", 1},    {"m", 60},      {"min", 60},
                                 {"h", kHour}, {"d", kDay}, {"w", 7 * kDay}};
  constexpr std::int64_t kMost = 100 * 366 * kDay;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number <= 0 || number > kMost) return std::nullopt;
  const std::string_view name(end, text.data() + text.size());
  for (const TimeUnit& unit : kUnits) {
    if (SameWord(unit.name, name) && number <= kMost / unit.seconds) return number * unit.seconds;
  }
  return std::nullopt;
}

}  // namespace flow::host
