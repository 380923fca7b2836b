// SPDX-License-Identifier: Apache-2.0
#include "host/ask/steps.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/store/database.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// An answer of more steps than this is a mistake.
constexpr std::int64_t kMostSteps = 20'000;

// A length that people count in, for about forty steps.
std::int64_t StepFor(std::int64_t seconds) {
  constexpr std::int64_t kLengths[] = {60,   300,   600,   900,   1800,  3600,
                                       7200, 10800, 21600, 43200, 86400, 604800};
  constexpr std::int64_t kSteps = 48;
  for (const std::int64_t length : kLengths) {
    if (seconds / length <= kSteps) return length;
  }
  return kLengths[std::size(kLengths) - 1];
}

// The longest bucket of which a step is made up.
std::int64_t BucketFor(std::int64_t step, std::int64_t from) {
  for (std::size_t tier = std::size(kTiers); tier-- > 0;) {
    const std::int64_t seconds = kTiers[tier].seconds;
    if (step % seconds == 0 && from % seconds == 0) return seconds;
  }
  return kMinuteSeconds;
}

}  // namespace

std::size_t Steps::At(std::int64_t time) const {
  const std::int64_t number = (time - cover.span.from) / seconds;
  return static_cast<std::size_t>(
      std::clamp<std::int64_t>(number, 0, static_cast<std::int64_t>(count) - 1));
}

std::int64_t ParseStep(const std::string& text) {
  if (text.empty()) return 0;
  const auto step = ParseLength(text);
  if (!step) throw UsageError(fmt::format("--step: '{}' is no length such as 5m or 1h", text));
  return *step;
}

Steps StepsOf(StoredCounters* counters, const TimeSpan& asked, std::int64_t seconds,
              std::vector<std::string>* notes) {
  Steps steps;
  steps.seconds = seconds == 0 ? StepFor(asked.Seconds()) : seconds;
  if (steps.seconds % kMinuteSeconds != 0) {
    throw UsageError(fmt::format("--step: {} seconds are no whole minutes", steps.seconds));
  }
  if (asked.Seconds() / steps.seconds > kMostSteps) {
    throw UsageError(fmt::format("--step: {} would be more than {} steps",
                                 DurationText(steps.seconds * 1000), kMostSteps));
  }
  const std::int64_t edge = std::min(steps.seconds, kHourSeconds);
  const TimeSpan span{asked.from / edge * edge, asked.to};
  steps.cover = counters->CoverOf(span, BucketFor(steps.seconds, span.from));
  for (const TierPart& part : steps.cover.parts) {
    const std::int64_t bucket = kTiers[part.tier].seconds;
    if (bucket <= steps.seconds) continue;
    steps.seconds = bucket;
    notes->push_back(fmt::format("of this time there are no shorter steps than {}",
                                 DurationText(bucket * 1000)));
  }
  steps.count =
      static_cast<std::size_t>((steps.cover.span.Seconds() + steps.seconds - 1) / steps.seconds);
  return steps;
}

Line TrafficLine(StoredCounters* counters, const Steps& steps, bool by_packets) {
  Line line(steps.count);
  for (const TierPart& part : steps.cover.parts) {
    const auto rows = counters->Ask(
        fmt::format("SELECT bucket, {} FROM buckets WHERE tier = ? AND bucket >= ? AND bucket < ?",
                    by_packets ? "packets" : "bytes"),
        {std::string(kTiers[part.tier].name), part.span.from, part.span.to});
    while (rows->Step()) line[steps.At(rows->Integer(0))] += rows->Real(1);
  }
  return line;
}

std::vector<Line> CounterLines(StoredCounters* counters, const StoredGroup& group,
                               const Steps& steps, const std::string& column,
                               const std::vector<std::string>& keys) {
  std::vector<Line> lines(keys.size() + 1, Line(steps.count));
  absl::flat_hash_map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < keys.size(); ++i) places.emplace(keys[i], i);
  for (const TierPart& part : steps.cover.parts) {
    const std::string from =
        fmt::format("FROM {} WHERE bucket >= ? AND bucket < ?", counters->GroupTable(group, part));
    SourceValues values{part.span.from, part.span.to};
    if (counters->AddsUp()) {
      const auto sums = counters->Ask(
          fmt::format("SELECT bucket, sum({}) {} GROUP BY bucket", Identifier(column), from),
          values);
      while (sums->Step()) lines.back()[steps.At(sums->Integer(0))] += sums->Real(1);
    }
    const auto rows =
        counters->Ask(fmt::format("SELECT bucket, key, {} {}{}", Identifier(column), from,
                                  counters->AddsUp() ? AmongKeys(keys, &values) : ""),
                      values);
    while (rows->Step()) {
      const std::size_t step = steps.At(rows->Integer(0));
      const double value = rows->Real(2);
      if (!counters->AddsUp()) lines.back()[step] += value;
      const auto place = places.find(rows->Text(1));
      if (place != places.end()) lines[place->second][step] += value;
    }
  }
  return lines;
}

std::string AmongKeys(const std::vector<std::string>& keys, SourceValues* values) {
  if (keys.empty()) return " AND key = ''";
  std::string places;
  for (const std::string& key : keys) {
    places += places.empty() ? "?" : ", ?";
    values->emplace_back(key);
  }
  return fmt::format(" AND key IN ({})", places);
}

void DescribeSteps(StoredCounters* counters, const Steps& steps, Answer* answer) {
  answer->steps = AnswerSteps{steps.cover.span.from, steps.seconds, Line(steps.count)};
  for (const TierPart& part : steps.cover.parts) {
    const auto rows = counters->Ask(
        fmt::format("SELECT bucket, sum(count) FROM {} WHERE bucket >= ? AND bucket < ? "
                    "AND place IN ('way', 'here') GROUP BY bucket",
                    counters->Table(TierTable("losses", kTiers[part.tier]), part.span)),
        {part.span.from, part.span.to});
    while (rows->Step()) answer->steps->lost[steps.At(rows->Integer(0))] += rows->Real(1);
  }
}

}  // namespace flow::host
