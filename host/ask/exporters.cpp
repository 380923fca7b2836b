// SPDX-License-Identifier: Apache-2.0
#include "host/ask/exporters.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/ask/top.h"
#include "host/base/number_text.h"

namespace flow::host {
namespace {

struct PlaceText {
  std::string_view place;
  std::string_view text;
};
constexpr PlaceText kPlaces[] = {
    {"way", "on the way"}, {"here", "here"}, {"refused", "refused"}, {"left_out", "left out"}};

std::string WhatText(const AnswerLoss& loss) {
  const auto* const place = std::ranges::find(kPlaces, loss.place, &PlaceText::place);
  const std::string_view text = place == std::end(kPlaces) ? loss.place : place->text;
  return fmt::format("{}: {}", text, loss.reason);
}

std::string NameOf(const KeyNames& names, const std::string& exporter) {
  const auto address = IpAddress::Parse(exporter);
  return address ? names.OfAddress(*address) : "";
}

// Shorter ones are no silence: an exporter with little to say sends when it has something.
constexpr std::int64_t kSilence = 5 * kMinuteSeconds;

class Exporters {
 public:
  Exporters(StoredCounters* counters, const TimeSpan& asked, const KeyNames& names,
            const Zone& zone)
      : counters_(counters), names_(names), zone_(zone) {
    cover_ = counters->CoverOf(asked, kMinuteSeconds);
  }

  Answer Make() {
    Answer answer;
    Coverage(counters_, cover_, &answer);
    answer.what = "exporters";
    answer.losses.clear();
    answer.columns = {{"key", "Exporter", ValueKind::kKey},
                      {"name", "Name", ValueKind::kText},
                      {"version", "Version", ValueKind::kText},
                      {"records", "Records", ValueKind::kCount},
                      {"records_per_second", "Records/s", ValueKind::kPacketRate},
                      {"last_seen_ms", "Last seen", ValueKind::kTime},
                      {"lost_share", "Lost", ValueKind::kShare},
                      {"templates", "Templates", ValueKind::kCount},
                      {"sampling_rate", "Sampling", ValueKind::kCount},
                      {"clock_offset_ms", "Clock", ValueKind::kOffset},
                      {"sets_without_template", "No template", ValueKind::kCount},
                      {"refused", "Refused", ValueKind::kCount},
                      {"silent", "Silent", ValueKind::kText}};
    ReadRan();
    ReadHealth();
    // A store that no newer collector has written yet does not have it.
    const bool has_clock = counters_->HasColumn("exporters", std::string(kClockOffset));
    const auto rows = counters_->Ask(
        fmt::format("SELECT exporter, port, version, last_seen, templates, sampling_rate, {} FROM "
                    "exporters WHERE last_seen >= ? AND first_seen < ? ORDER BY exporter, port, "
                    "version",
                    has_clock ? kClockOffset : "NULL"),
        {cover_.span.from - kDaySeconds, cover_.span.to});
    while (rows->Step()) answer.rows.push_back(RowOf(*rows));
    std::ranges::stable_sort(answer.rows, std::greater(), [](const AnswerRow& row) {
      return std::get<std::int64_t>(row.values[3]);
    });
    if (answer.rows.empty()) answer.notes.emplace_back("no exporter was heard");
    return answer;
  }

 private:
  using Key = std::tuple<std::string, std::int64_t, std::string>;  // address, port, version

  struct Health {
    std::int64_t records = 0;
    std::int64_t arrived = 0;  // in the unit of what was lost
    std::int64_t lost = 0;
    std::int64_t sets_without_template = 0;
    std::int64_t refused = 0;
    std::int64_t last_bucket = 0;
    std::vector<TimeSpan> silences;
  };

  // How many seconds the collector ran up to each minute.
  void ReadRan() {
    const auto rows = counters_->Ask(
        "SELECT bucket, ran FROM buckets WHERE tier = 'minute' AND bucket >= ? AND bucket < ? "
        "ORDER BY bucket",
        {cover_.span.from, cover_.span.to});
    std::int64_t sum = 0;
    while (rows->Step()) {
      ran_until_[rows->Integer(0)] = sum;
      sum += rows->Integer(1);
      end_ = rows->Integer(0) + kMinuteSeconds;
    }
    ran_until_[end_] = sum;
  }

  [[nodiscard]] std::int64_t RanBetween(std::int64_t from, std::int64_t to) const {
    const auto start = ran_until_.lower_bound(from);
    const auto stop = ran_until_.lower_bound(to);
    if (start == ran_until_.end()) return 0;
    return (stop == ran_until_.end() ? ran_until_.rbegin()->second : stop->second) - start->second;
  }

  void NoteSilence(Health* health, std::int64_t from, std::int64_t to) const {
    if (RanBetween(from, to) >= kSilence) health->silences.push_back({from, to});
  }

  void ReadHealth() {
    for (const TierPart& part : cover_.parts) {
      const Tier& tier = kTiers[part.tier];
      const auto rows = counters_->Ask(
          fmt::format("SELECT exporter, port, version, bucket, records, lost, "
                      "CASE WHEN lost_unit = 'datagrams' THEN datagrams ELSE described END, "
                      "sets_without_template, refused "
                      "FROM {} WHERE bucket >= ? AND bucket < ? AND datagrams > 0 ORDER BY bucket",
                      counters_->Table(TierTable("health", tier), part.span)),
          {part.span.from, part.span.to});
      while (rows->Step()) {
        Health& health = health_[KeyOf(*rows)];
        const std::int64_t bucket = rows->Integer(3);
        if (health.last_bucket > 0) NoteSilence(&health, health.last_bucket, bucket);
        health.last_bucket = bucket + tier.seconds;
        health.records += rows->Integer(4);
        health.lost += rows->Integer(5);
        health.arrived += rows->Integer(6);
        health.sets_without_template += rows->Integer(7);
        health.refused += rows->Integer(8);
      }
    }
    for (auto& [key, health] : health_) NoteSilence(&health, health.last_bucket, end_);
  }

  static Key KeyOf(const SourceRows& row) {
    return {std::string(row.Text(0)), row.Integer(1), std::string(row.Text(2))};
  }

  [[nodiscard]] AnswerRow RowOf(const SourceRows& row) {
    const Key key = KeyOf(row);
    const Health& health = health_[key];
    const std::int64_t last_seen = row.Integer(3);
    const std::string exporter = std::get<0>(key);
    AnswerRow made;
    made.values = {exporter,
                   NameOf(names_, exporter),
                   std::get<2>(key),
                   health.records,
                   static_cast<double>(health.records) /
                       static_cast<double>(std::max<std::int64_t>(cover_.span.Seconds(), 1)),
                   last_seen * 1000,
                   {},
                   row.Integer(4),
                   {},
                   {},
                   health.sets_without_template,
                   health.refused,
                   SilenceText(health, last_seen)};
    const std::int64_t sent = health.arrived + health.lost;
    if (sent > 0) {
      made.values[6] = static_cast<double>(health.lost) / static_cast<double>(sent);
    }
    if (!row.IsNull(5)) made.values[8] = row.Integer(5);
    if (!row.IsNull(6)) made.values[9] = row.Integer(6);
    return made;
  }

  // "since 03:12 (6 h 2 min), 01:00 to 01:30"; the last ones first.
  [[nodiscard]] std::string SilenceText(const Health& health, std::int64_t last_seen) const {
    constexpr std::size_t kShown = 3;
    if (health.last_bucket == 0) return fmt::format("since {}", zone_.Text(last_seen));
    std::string text;
    const auto& silences = health.silences;
    for (std::size_t i = 0; i < silences.size() && i < kShown; ++i) {
      const TimeSpan& silence = silences[silences.size() - 1 - i];
      if (!text.empty()) text += ", ";
      if (silence.to == end_) {
        text += fmt::format("since {} ({})", zone_.Text(silence.from),
                            DurationText(silence.Seconds() * 1000));
      } else {
        text += fmt::format("{} to {}", zone_.Text(silence.from), zone_.ClockText(silence.to));
      }
    }
    if (silences.size() > kShown) text += fmt::format(", {} more", silences.size() - kShown);
    return text;
  }

  StoredCounters* counters_;
  const KeyNames& names_;
  const Zone& zone_;
  Cover cover_;
  std::map<std::int64_t, std::int64_t> ran_until_;
  std::int64_t end_ = 0;
  std::map<Key, Health> health_;
};

}  // namespace

Answer AskLosses(StoredCounters* counters, const TimeSpan& span, const KeyNames& names) {
  const Cover cover = counters->CoverOf(span, kMinuteSeconds);
  Answer answer;
  Coverage(counters, cover, &answer);
  answer.what = "losses";
  answer.columns = {{"key", "Exporter", ValueKind::kKey}, {"name", "Name", ValueKind::kText},
                    {"what", "What", ValueKind::kText},   {"from_ms", "From", ValueKind::kTime},
                    {"to_ms", "To", ValueKind::kTime},    {"count", "Lost", ValueKind::kCount},
                    {"unit", "", ValueKind::kText},       {"share", "Share", ValueKind::kShare}};
  for (const AnswerLoss& loss : answer.losses) {
    AnswerRow row;
    row.values = {loss.exporter.empty() ? std::string("(socket)") : loss.exporter,
                  NameOf(names, loss.exporter),
                  WhatText(loss),
                  loss.span.from * 1000,
                  loss.span.to * 1000,
                  loss.count,
                  loss.unit,
                  {}};
    if (loss.share) row.values.back() = *loss.share;
    answer.rows.push_back(std::move(row));
  }
  if (answer.rows.empty() && !cover.parts.empty()) answer.notes.emplace_back("nothing was lost");
  answer.losses.clear();
  return answer;
}

Answer AskExporters(StoredCounters* counters, const TimeSpan& span, const KeyNames& names,
                    const Zone& zone) {
  return Exporters(counters, span, names, zone).Make();
}

}  // namespace flow::host
