// SPDX-License-Identifier: Apache-2.0
#include "host/ask/stored_counters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>
#include <utility>

#include "host/ask/store_source.h"
#include "host/base/error.h"
#include "host/base/words.h"

namespace flow::host {
namespace {

struct Alias {
  std::string_view name;
  std::string_view groups[2];
};
// A name of the store itself means what it says, but for hosts: people mean all of them.
constexpr Alias kAliases[] = {
    {"hosts", {"hosts", "hosts6"}},  {"hosts4", {"hosts", ""}},
    {"as", {"as_numbers", ""}},      {"apps", {"applications", ""}},
    {"ports", {"applications", ""}}, {"interfaces", {"flowintfs", ""}},
    {"exporters", {"flowgens", ""}}, {"prefixes", {"prefixes", "prefixes6"}},
};

constexpr std::string_view kPlurals[] = {"minutes'", "hours'", "days'"};
static_assert(std::size(kPlurals) == std::size(kTiers));

ValueKind KindOf(std::string_view unit) {
  if (unit == "bytes") return ValueKind::kBytes;
  return unit == "packets" ? ValueKind::kPackets : ValueKind::kCount;
}

// Exporters can claim anything: sums stay at the largest number.
void AddCut(std::int64_t more, std::int64_t* sum) {
  if (__builtin_add_overflow(*sum, more, sum)) *sum = std::numeric_limits<std::int64_t>::max();
}

std::int64_t Floor(std::int64_t time, std::int64_t step) { return time / step * step; }

}  // namespace

std::string Cover::Source() const {
  std::array<bool, std::size(kTiers)> used{};
  for (const TierPart& part : parts) used[part.tier] = true;
  std::string tiers;
  for (std::size_t tier = used.size(); tier-- > 0;) {
    if (used[tier]) tiers += fmt::format("{}{}", tiers.empty() ? "" : " and ", kPlurals[tier]);
  }
  return tiers.empty() ? "no data" : fmt::format("the {} totals", tiers);
}

StoredCounters::StoredCounters(const std::string& directory)
    : source_(std::make_unique<StoreSource>(directory)) {}

std::vector<std::string> StoredCounters::GroupIds() {
  std::vector<std::string> ids;
  const auto list = Ask("SELECT group_id FROM groups ORDER BY place");
  while (list->Step()) ids.emplace_back(list->Text(0));
  return ids;
}

std::vector<StoredGroup> StoredCounters::AllGroups() {
  std::vector<StoredGroup> groups;
  for (const std::string& id : GroupIds()) groups.push_back(Describe(id));
  return groups;
}

std::vector<StoredGroup> StoredCounters::Groups(const std::string& name) {
  const std::vector<std::string> known = GroupIds();
  std::vector<std::string_view> wanted{name};
  for (const Alias& alias : kAliases) {
    if (SameWord(alias.name, name)) wanted = {alias.groups[0], alias.groups[1]};
  }
  std::vector<StoredGroup> groups;
  for (const std::string& id : known) {
    const bool is_wanted =
        std::ranges::any_of(wanted, [&](std::string_view word) { return SameWord(word, id); });
    if (is_wanted) groups.push_back(Describe(id));
  }
  if (!groups.empty()) return groups;
  std::string all = "as, interfaces, exporters";
  for (const std::string& id : known) all += ", " + id;
  throw UsageError(fmt::format("there is no group '{}'; there are {}", name, all));
}

StoredGroup StoredCounters::Describe(const std::string& id) {
  StoredGroup group;
  group.id = id;
  const auto about = Ask("SELECT title, key_title, key_kind FROM groups WHERE group_id = ?", {id});
  if (about->Step()) {
    group.title = about->Text(0);
    group.key_title = about->Text(1);
    group.key_kind = about->Text(2);
  }
  group.columns = {{"bytes", "Total", ValueKind::kBytes}};
  const auto meters =
      Ask("SELECT name, title, unit FROM meters WHERE group_id = ? ORDER BY place", {id});
  // A meter that is one of the first two has no column of its own.
  while (meters->Step()) {
    const std::string name(meters->Text(0));
    if (name == "bytes" || !source_->HasColumn(TierTable(id, kTiers[0]), name)) continue;
    group.columns.push_back({name, std::string(meters->Text(1)), KindOf(meters->Text(2))});
  }
  return group;
}

StoredCounters::Buckets StoredCounters::BucketsOf(std::size_t tier, const TimeSpan& span) {
  Buckets buckets;
  const auto rows =
      Ask("SELECT bucket, ran, bytes, packets, flows, flows_not_kept FROM buckets "
          "WHERE tier = ? AND bucket >= ? AND bucket < ?",
          {std::string(kTiers[tier].name), Floor(span.from, kTiers[tier].seconds), span.to});
  while (rows->Step()) {
    buckets[rows->Integer(0)] = {rows->Integer(1), rows->Integer(2), rows->Integer(3),
                                 rows->Integer(4), rows->Integer(5)};
  }
  return buckets;
}

Cover StoredCounters::CoverOf(const TimeSpan& span, std::int64_t most_seconds) {
  std::array<Buckets, std::size(kTiers)> tiers;
  for (std::size_t tier = 0; tier < tiers.size(); ++tier) tiers[tier] = BucketsOf(tier, span);
  Cover cover;
  cover.span = {Floor(span.from, kMinuteSeconds),
                Floor(span.to + kMinuteSeconds - 1, kMinuteSeconds)};
  // The largest bucket that begins here and fits; else one that has it in its midst.
  const auto find = [&](std::int64_t at) -> std::optional<std::pair<std::size_t, std::int64_t>> {
    for (std::size_t tier = tiers.size(); tier-- > 0;) {
      const std::int64_t seconds = kTiers[tier].seconds;
      if (seconds > most_seconds || at % seconds != 0 || at + seconds > cover.span.to) continue;
      if (tiers[tier].contains(at)) return std::pair(tier, at);
    }
    for (std::size_t tier = 1; tier < tiers.size(); ++tier) {
      const std::int64_t start = Floor(at, kTiers[tier].seconds);
      const bool is_free = cover.parts.empty() || start >= cover.parts.back().span.to;
      if (is_free && tiers[tier].contains(start) && IsAllThatIsLeft(tier, start)) {
        return std::pair(tier, start);
      }
    }
    return std::nullopt;
  };
  // Years without anything are stepped over.
  const auto next_after = [&](std::int64_t at) {
    std::int64_t next = cover.span.to;
    for (const Buckets& buckets : tiers) {
      const auto bucket = buckets.upper_bound(at);
      if (bucket != buckets.end()) next = std::min(next, bucket->first);
    }
    return next;
  };
  std::int64_t last = cover.span.from;  // behind the last bucket that is there
  for (std::int64_t at = cover.span.from; at < cover.span.to;) {
    const auto found = find(at);
    if (!found) {
      at = next_after(at);
      continue;
    }
    const auto [tier, start] = *found;
    const TimeSpan bucket{start, start + kTiers[tier].seconds};
    const Bucket& has = tiers[tier].at(start);
    cover.is_widened |= start < at || bucket.to > cover.span.to;
    AddCut(has.bytes, &cover.bytes);
    AddCut(has.packets, &cover.packets);
    AddCut(has.flows, &cover.flows);
    AddCut(has.flows_not_kept, &cover.flows_not_kept);
    if (at > last && start > last) cover.gaps.push_back({{last, start}, "nothing is kept of it"});
    if (!cover.parts.empty() && cover.parts.back().tier == tier &&
        cover.parts.back().span.to == start) {
      cover.parts.back().span.to = bucket.to;
    } else {
      cover.parts.push_back({tier, bucket});
    }
    at = last = bucket.to;
  }
  if (!cover.parts.empty()) {
    cover.span.from = std::min(cover.span.from, cover.parts.front().span.from);
    cover.span.to = std::max(cover.span.to, last);
  }
  // The minute that runs is not written yet.
  if (last < cover.span.to && last >= cover.span.to - 2 * kMinuteSeconds &&
      last > cover.span.from) {
    cover.span.to = last;
  }
  if (last < cover.span.to) cover.gaps.push_back({{last, cover.span.to}, "nothing is kept of it"});
  for (AnswerGap& gap : GapsOf(cover.span)) cover.gaps.push_back(std::move(gap));
  return cover;
}

bool StoredCounters::IsAllThatIsLeft(std::size_t tier, std::int64_t bucket) {
  for (std::size_t i = 0; i < tier; ++i) {
    const auto shorter =
        Ask("SELECT bucket FROM buckets WHERE tier = ? AND bucket >= ? AND bucket < ? LIMIT 1",
            {std::string(kTiers[i].name), bucket, bucket + kTiers[tier].seconds});
    if (shorter->Step()) return false;
  }
  return true;
}

std::vector<AnswerGap> StoredCounters::GapsOf(const TimeSpan& span) {
  std::vector<AnswerGap> gaps;
  const auto rows = Ask(
      "SELECT started, ended, reason FROM gaps WHERE started < ? AND ended > ? ORDER BY started",
      {span.to, span.from});
  while (rows->Step()) {
    const TimeSpan gap{std::max(rows->Integer(0), span.from), std::min(rows->Integer(1), span.to)};
    gaps.push_back({gap, std::string(rows->Text(2))});
  }
  return gaps;
}

TimeSpan StoredCounters::Whole() {
  const auto ends = Ask("SELECT min(bucket), max(bucket) FROM buckets WHERE tier = 'minute'");
  if (!ends->Step()) return {};
  return {ends->Integer(0), ends->Integer(1) + kMinuteSeconds};
}

std::vector<AnswerLoss> StoredCounters::LossesOf(const Cover& cover) {
  using Key = std::array<std::string, 4>;  // exporter, place, reason, unit
  std::map<Key, AnswerLoss> losses;
  std::map<std::string, std::pair<std::int64_t, std::int64_t>> traffic;  // datagrams, records
  for (const TierPart& part : cover.parts) {
    const Tier& tier = kTiers[part.tier];
    const SourceValues limits{part.span.from, part.span.to};
    const auto rows = Ask(
        fmt::format("SELECT exporter, place, reason, unit, sum(count), min(bucket), max(bucket) "
                    "FROM {} WHERE bucket >= ? AND bucket < ? "
                    "GROUP BY exporter, place, reason, unit",
                    Table(TierTable("losses", tier), part.span)),
        limits);
    while (rows->Step()) {
      Key key;
      for (int i = 0; i < 4; ++i) key[static_cast<std::size_t>(i)] = rows->Text(i);
      AnswerLoss& loss = losses[key];
      const TimeSpan when{rows->Integer(5), rows->Integer(6) + tier.seconds};
      loss.span.from = loss.count == 0 ? when.from : std::min(loss.span.from, when.from);
      loss.span.to = std::max(loss.span.to, when.to);
      loss.count += rows->Integer(4);
    }
    const auto sums = Ask(fmt::format("SELECT exporter, sum(datagrams), sum(described) FROM {} "
                                      "WHERE bucket >= ? AND bucket < ? GROUP BY exporter",
                                      Table(TierTable("health", tier), part.span)),
                          limits);
    while (sums->Step()) {
      auto& [datagrams, records] = traffic[std::string(sums->Text(0))];
      datagrams += sums->Integer(1);
      records += sums->Integer(2);
    }
  }
  std::vector<AnswerLoss> list;
  for (auto& [key, loss] : losses) {
    if (loss.count == 0) continue;
    loss.exporter = key[0];
    loss.place = key[1];
    loss.reason = key[2];
    loss.unit = key[3];
    const auto sent = traffic.find(loss.exporter);
    if (sent != traffic.end() &&
        (loss.unit == "datagrams" || loss.unit == "records" || loss.unit == "flows")) {
      const auto& [datagrams, records] = sent->second;
      const auto arrived = loss.unit == "datagrams" ? datagrams : records;
      // What was left out has arrived.
      const bool is_missing = loss.place == "way" || (loss.place == "here");
      const auto all = static_cast<double>(arrived + (is_missing ? loss.count : 0));
      if (all > 0) loss.share = static_cast<double>(loss.count) / all;
    }
    list.push_back(std::move(loss));
  }
  return list;
}

}  // namespace flow::host
