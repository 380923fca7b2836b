// SPDX-License-Identifier: Apache-2.0
#include "host/ask/stored_counters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <utility>

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
    : directory_(directory), database_([&] {
        if (!std::filesystem::exists(CountersPath(directory))) {
          throw HostError(
              fmt::format("there is no store in {}: flowhost listen --store DIR and replay --store "
                          "DIR make one",
                          directory));
        }
        return Database::ToRead(CountersPath(directory));
      }()) {
  const std::int64_t version = database_.Ask("PRAGMA user_version").value_or(0);
  if (database_.Ask("PRAGMA application_id").value_or(0) != kStoreId) {
    throw HostError(fmt::format("{} is no store of flowhost", database_.path()));
  }
  if (version != kStoreVersion) {
    throw HostError(fmt::format("{} has format {}; this flowhost knows {}", database_.path(),
                                version, kStoreVersion));
  }
}

std::vector<std::string> StoredCounters::GroupIds() {
  std::vector<std::string> ids;
  Statement list = database_.Prepare("SELECT group_id FROM groups ORDER BY place");
  while (list.Step()) ids.emplace_back(list.Text(0));
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
  Statement about =
      database_.Prepare("SELECT title, key_title, key_kind FROM groups WHERE group_id = ?");
  about.Bind(1, id).Step();
  group.title = about.Text(0);
  group.key_title = about.Text(1);
  group.key_kind = about.Text(2);
  group.columns = {{"bytes", "Total", ValueKind::kBytes}};
  Statement meters =
      database_.Prepare("SELECT name, title, unit FROM meters WHERE group_id = ? ORDER BY place");
  // A meter that is one of the first two has no column of its own.
  meters.Bind(1, id);
  while (meters.Step()) {
    const std::string name(meters.Text(0));
    if (name == "bytes") continue;
    if (HasColumn(&database_, TierTable(id, kTiers[0]), name)) {
      group.columns.push_back({name, std::string(meters.Text(1)), KindOf(meters.Text(2))});
    }
  }
  return group;
}

StoredCounters::Buckets StoredCounters::BucketsOf(std::size_t tier, const TimeSpan& span) {
  Buckets buckets;
  Statement rows = database_.Prepare(
      "SELECT bucket, ran, bytes, packets, flows, flows_not_kept FROM buckets "
      "WHERE tier = ? AND bucket >= ? AND bucket < ?");
  rows.Bind(1, kTiers[tier].name);
  rows.Bind(2, Floor(span.from, kTiers[tier].seconds)).Bind(3, span.to);
  while (rows.Step()) {
    buckets[rows.Integer(0)] = {rows.Integer(1), rows.Integer(2), rows.Integer(3), rows.Integer(4),
                                rows.Integer(5)};
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
    cover.bytes += has.bytes;
    cover.packets += has.packets;
    cover.flows += has.flows;
    cover.flows_not_kept += has.flows_not_kept;
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
  Statement shorter = database_.Prepare(
      "SELECT 1 FROM buckets WHERE tier = ? AND bucket >= ? AND bucket < ? LIMIT 1");
  for (std::size_t i = 0; i < tier; ++i) {
    shorter.Bind(1, kTiers[i].name).Bind(2, bucket).Bind(3, bucket + kTiers[tier].seconds);
    if (shorter.Step()) return false;
  }
  return true;
}

std::vector<AnswerGap> StoredCounters::GapsOf(const TimeSpan& span) {
  std::vector<AnswerGap> gaps;
  Statement rows = database_.Prepare(
      "SELECT max(started, ?1), min(ended, ?2), reason FROM gaps "
      "WHERE started < ?2 AND ended > ?1 ORDER BY 1");
  rows.Bind(1, span.from).Bind(2, span.to);
  while (rows.Step()) {
    gaps.push_back({{rows.Integer(0), rows.Integer(1)}, std::string(rows.Text(2))});
  }
  return gaps;
}

TimeSpan StoredCounters::Whole() {
  Statement ends =
      database_.Prepare("SELECT min(bucket), max(bucket) FROM buckets WHERE tier = 'minute'");
  ends.Step();
  return {ends.Integer(0), ends.Integer(1) + kMinuteSeconds};
}

std::vector<AnswerLoss> StoredCounters::LossesOf(const Cover& cover) {
  using Key = std::array<std::string, 4>;  // exporter, place, reason, unit
  std::map<Key, AnswerLoss> losses;
  std::map<std::string, std::pair<std::int64_t, std::int64_t>> traffic;  // datagrams, records
  for (const TierPart& part : cover.parts) {
    const Tier& tier = kTiers[part.tier];
    Statement rows = database_.Prepare(fmt::format(
        "SELECT exporter, place, reason, unit, sum(count), min(bucket), max(bucket) + {} "
        "FROM losses_{} WHERE bucket >= ? AND bucket < ? GROUP BY 1, 2, 3, 4",
        tier.seconds, tier.name));
    rows.Bind(1, part.span.from).Bind(2, part.span.to);
    while (rows.Step()) {
      Key key;
      for (int i = 0; i < 4; ++i) key[static_cast<std::size_t>(i)] = rows.Text(i);
      AnswerLoss& loss = losses[key];
      const TimeSpan when{rows.Integer(5), rows.Integer(6)};
      loss.span.from = loss.count == 0 ? when.from : std::min(loss.span.from, when.from);
      loss.span.to = std::max(loss.span.to, when.to);
      loss.count += rows.Integer(4);
    }
    Statement sums = database_.Prepare(
        fmt::format("SELECT exporter, sum(datagrams), sum(described) FROM health_{} "
                    "WHERE bucket >= ? AND bucket < ? GROUP BY 1",
                    tier.name));
    sums.Bind(1, part.span.from).Bind(2, part.span.to);
    while (sums.Step()) {
      auto& [datagrams, records] = traffic[std::string(sums.Text(0))];
      datagrams += sums.Integer(1);
      records += sums.Integer(2);
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
