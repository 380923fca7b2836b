// SPDX-License-Identifier: Apache-2.0
#include "host/ask/tier_sums.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "host/ask/steps.h"
#include "host/store/database.h"

namespace flow::host {
namespace {

std::string ColumnList(const StoredGroup& group) {
  std::string list;
  for (const StoredGroup::Column& column : group.columns) list += ", " + Identifier(column.name);
  return list;
}

std::string FromPart(StoredCounters* counters, const StoredGroup& group, const TierPart& part) {
  return fmt::format("FROM {} WHERE bucket >= ? AND bucket < ?", counters->GroupTable(group, part));
}

}  // namespace

TierSums::TierSums(StoredCounters* counters, const StoredGroup& group, const Cover& cover,
                   std::size_t ranking)
    : columns_(group.columns.size()), ranking_(ranking), sums_(columns_ + 2), totals_(columns_) {
  for (const TierPart& part : cover.parts) {
    counters->AddsUp() ? ReadSums(counters, group, part) : ReadPart(counters, group, part);
  }
}

// Where the others have anything, every key may have all of it: nobody has looked bucket by bucket.
void TierSums::ReadSums(StoredCounters* counters, const StoredGroup& group, const TierPart& part) {
  const SourceValues limits{part.span.from, part.span.to};
  std::string sums;
  for (const StoredGroup::Column& column : group.columns) {
    sums += fmt::format(", sum({})", Identifier(column.name));
  }
  const auto rows = counters->Ask(fmt::format("SELECT key, sum(bound), max(keys){} {} GROUP BY key",
                                              sums, FromPart(counters, group, part)),
                                  limits);
  std::size_t keys = 0;
  while (rows->Step()) {
    const std::string_view key = rows->Text(0);
    const bool is_key = key != kOthersKey;
    keys += is_key ? 1 : static_cast<std::size_t>(rows->Integer(2));
    std::uint64_t* const into = is_key ? sums_.FindOrAdd(key) : nullptr;
    for (std::size_t i = 0; i < columns_; ++i) {
      const auto value = static_cast<std::uint64_t>(rows->Integer(static_cast<int>(i) + 3));
      totals_[i] += value;
      if (is_key) into[i] += value;
      if (!is_key && i == ranking_) cutoffs_ += value;
    }
    if (is_key) into[columns_ + 1] += static_cast<std::uint64_t>(rows->Integer(1));
    has_others_ |= !is_key;
  }
  most_keys_ = std::max(most_keys_, keys);
  buckets_ += static_cast<std::size_t>(part.span.Seconds() / kTiers[part.tier].seconds);
}

void TierSums::ReadPart(StoredCounters* counters, const StoredGroup& group, const TierPart& part) {
  // Keys are kept by their bytes; of another column the others may all be one key's.
  const std::string column = Identifier(group.columns[ranking_].name);
  const std::string others(kOthersKey);
  const auto limits = counters->Ask(
      fmt::format("SELECT bucket, min(CASE WHEN key <> ? THEN {0} END), "
                  "max(CASE WHEN key = ? THEN {0} END), sum(keys) {1} GROUP BY bucket",
                  column, FromPart(counters, group, part)),
      {others, others, part.span.from, part.span.to});
  absl::flat_hash_map<std::int64_t, std::uint64_t> cutoffs;
  while (limits->Step()) {
    ++buckets_;
    most_keys_ = std::max(most_keys_, static_cast<std::size_t>(limits->Integer(3)));
    const std::int64_t their = limits->Integer(2);
    if (their <= 0) continue;
    const std::int64_t smallest = limits->IsNull(1) ? their : limits->Integer(1);
    const auto cutoff =
        static_cast<std::uint64_t>(ranking_ == 0 ? std::min(smallest, their) : their);
    cutoffs[limits->Integer(0)] = cutoff;
    cutoffs_ += cutoff;
    has_others_ = true;
  }
  const auto rows = counters->Ask(fmt::format("SELECT bucket, key, bound{} {}", ColumnList(group),
                                              FromPart(counters, group, part)),
                                  {part.span.from, part.span.to});
  while (rows->Step()) {
    const std::string_view key = rows->Text(1);
    const bool is_key = key != kOthersKey;
    std::uint64_t* const sums = is_key ? sums_.FindOrAdd(key) : nullptr;
    for (std::size_t i = 0; i < columns_; ++i) {
      const auto value = static_cast<std::uint64_t>(rows->Integer(static_cast<int>(i) + 3));
      totals_[i] += value;
      if (is_key) sums[i] += value;
    }
    if (!is_key) continue;
    const auto cutoff = cutoffs.find(rows->Integer(0));
    if (cutoff != cutoffs.end()) sums[columns_] += cutoff->second;
    sums[columns_ + 1] += static_cast<std::uint64_t>(rows->Integer(2));
  }
}

std::vector<TierSums::Key> TierSums::Largest(std::size_t count) const {
  std::vector<Key> keys;
  keys.reserve(sums_.size());
  sums_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    const std::uint64_t missing = cutoffs_ - values[columns_] + values[columns_ + 1];
    keys.push_back({key, values, values[ranking_] + missing});
  });
  count = std::min(count, keys.size());
  std::ranges::partial_sort(
      keys, keys.begin() + static_cast<std::ptrdiff_t>(count), [this](const Key& a, const Key& b) {
        return std::pair(b.values[ranking_], a.key) < std::pair(a.values[ranking_], b.key);
      });
  keys.resize(count);
  return keys;
}

std::uint64_t TierSums::MostBeyond(std::size_t count) const {
  const std::vector<Key> keys = Largest(std::numeric_limits<std::size_t>::max());
  std::uint64_t most = cutoffs_;
  for (std::size_t i = count; i < keys.size(); ++i) most = std::max(most, keys[i].most);
  return most;
}

std::vector<std::vector<double>> LinesOf(StoredCounters* counters, const StoredGroup& group,
                                         const TimeSpan& span, std::string_view column,
                                         const std::vector<std::string>& keys) {
  constexpr std::int64_t kMostBuckets = 1500;
  constexpr std::int64_t kPoints = 32;
  std::size_t tier = 0;
  while (tier + 1 < std::size(kTiers) && span.Seconds() / kTiers[tier].seconds > kMostBuckets) {
    ++tier;
  }
  const std::int64_t points = std::min(kPoints, span.Seconds() / kTiers[tier].seconds);
  if (points < 2) return {};
  std::vector<std::vector<double>> lines(keys.size(),
                                         std::vector<double>(static_cast<std::size_t>(points)));
  absl::flat_hash_map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < keys.size(); ++i) places.emplace(keys[i], i);
  SourceValues values{span.from, span.to};
  const auto rows = counters->Ask(fmt::format("SELECT bucket, key, {} {}{}", Identifier(column),
                                              FromPart(counters, group, {tier, span}),
                                              counters->AddsUp() ? AmongKeys(keys, &values) : ""),
                                  values);
  bool has_any = false;
  while (rows->Step()) {
    const std::string_view key = rows->Text(1);
    const auto place = places.find(key);
    if (place == places.end()) continue;
    const std::int64_t point = (rows->Integer(0) - span.from) * points / span.Seconds();
    lines[place->second][static_cast<std::size_t>(point)] += rows->Real(2);
    has_any = true;
  }
  return has_any ? lines : std::vector<std::vector<double>>();
}

}  // namespace flow::host
