// SPDX-License-Identifier: Apache-2.0
#include "host/store/tier_counts.h"

#include <algorithm>
#include <istream>
#include <limits>
#include <ostream>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

// Without a column of bytes it is that of the first meter that ranks.
std::size_t RankedColumn(const GroupInfo& group, const std::vector<ValueColumn>& columns) {
  if (!columns[0].meters.empty() || group.ranking.empty()) return 0;
  const auto ranked = std::ranges::find_if(columns, [&](const ValueColumn& column) {
    return column.meters.size() == 1 && column.meters[0] == group.ranking[0];
  });
  return ranked == columns.end() ? 0 : static_cast<std::size_t>(ranked - columns.begin());
}

void Put(std::ostream& out, std::uint64_t value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof(value));
}
void Put(std::ostream& out, std::string_view text) {
  Put(out, text.size());
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}
std::uint64_t Take(std::istream& in) {
  std::uint64_t value = 0;
  in.read(reinterpret_cast<char*>(&value), sizeof(value));
  return in ? value : 0;
}
std::string TakeText(std::istream& in) {
  std::string text(std::min<std::uint64_t>(Take(in), KeyTable::kLongestKey), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  return text;
}

}  // namespace

GroupSums::GroupSums(GroupInfo info)
    : info_(std::move(info)),
      columns_(ValueColumns(info_)),
      ranked_(RankedColumn(info_, columns_)),
      table_(columns_.size() + 1),
      others_(columns_.size()) {}

// A key that is new may have been there before, and been let go.
std::uint64_t* GroupSums::FindOrAdd(std::string_view key) {
  std::uint64_t* const values = table_.FindOrAdd(key);
  if (values[columns_.size()] == 0) values[columns_.size()] = 1 + most_missing_;
  return values;
}

void GroupSums::Add(std::string_view key, const std::uint64_t* values, std::uint64_t bound) {
  std::uint64_t* const sums = FindOrAdd(key);
  for (std::size_t i = 0; i < columns_.size(); ++i) sums[i] += values[i];
  sums[columns_.size()] += bound;
}

void GroupSums::Add(const GroupSums& other) {
  const std::size_t bound = columns_.size();
  // Those that the other one lacks may be among what it let go.
  if (other.most_missing_ > 0) {
    table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
      if (other.table_.Find(key) == nullptr) {
        const_cast<std::uint64_t*>(values)[bound] += other.most_missing_;
      }
    });
  }
  other.table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    Add(key, values, values[bound] - 1);
  });
  for (std::size_t i = 0; i < columns_.size(); ++i) others_[i] += other.others_[i];
  other_keys_ += other.other_keys_;
  most_missing_ += other.most_missing_;
}

void GroupSums::AddOthers(const std::uint64_t* values, std::uint64_t keys, std::uint64_t most) {
  if (keys == 0) return;
  for (std::size_t i = 0; i < columns_.size(); ++i) others_[i] += values[i];
  other_keys_ += keys;
  most_missing_ += most;
}

std::vector<std::uint64_t> GroupSums::Totals() const { return Rank(0).others; }

bool GroupSums::Explains(const GroupSums& part) const {
  if (!IsWhole() || size() != part.size() + part.other_keys_ || Totals() != part.Totals()) {
    return false;
  }
  bool agrees = true;
  part.table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    const std::uint64_t* const ours = table_.Find(key);
    // With the bound, which is none.
    agrees = agrees && ours != nullptr && std::equal(ours, ours + columns_.size() + 1, values);
  });
  return agrees;
}

GroupSums::Ranking GroupSums::Rank(std::size_t most) const {
  Ranking ranking;
  ranking.rows.reserve(table_.size());
  table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    ranking.rows.push_back({key, values, values[columns_.size()] - 1});
  });
  const auto larger = [this](const Row& a, const Row& b) {
    return std::pair(b.values[ranked_], a.key) < std::pair(a.values[ranked_], b.key);
  };
  const std::size_t kept = std::min(most, ranking.rows.size());
  const auto end = ranking.rows.begin() + static_cast<std::ptrdiff_t>(kept);
  std::partial_sort(ranking.rows.begin(), end, ranking.rows.end(), larger);
  ranking.others = others_;
  ranking.other_keys = other_keys_ + ranking.rows.size() - kept;
  for (auto row = end; row != ranking.rows.end(); ++row) {
    for (std::size_t i = 0; i < columns_.size(); ++i) ranking.others[i] += row->values[i];
  }
  ranking.rows.erase(end, ranking.rows.end());
  return ranking;
}

void GroupSums::Prune() {
  const std::size_t most = std::min(info_.track_high, Shares().stored_keys);
  PruneTo(most, std::min(info_.track_low, most / 2));
}

void GroupSums::PruneTo(std::size_t most, std::size_t left) {
  if (table_.size() <= most) return;
  const Ranking kept = Rank(left);
  KeyTable table(columns_.size() + 1);
  std::uint64_t most_missing = most_missing_;
  for (const Row& row : kept.rows) {
    std::copy_n(row.values, columns_.size() + 1, table.FindOrAdd(row.key));
  }
  table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    if (table.Find(key) == nullptr) {
      most_missing = std::max(most_missing, values[ranked_] + values[columns_.size()] - 1);
    }
  });
  others_ = kept.others;
  other_keys_ = kept.other_keys;
  most_missing_ = most_missing;
  table_ = std::move(table);
}

void GroupSums::Save(std::ostream& out) const {
  Put(out, info_.id);
  Put(out, columns_.size());
  Put(out, other_keys_);
  Put(out, most_missing_);
  for (const std::uint64_t value : others_) Put(out, value);
  Put(out, table_.size());
  table_.ForEach([&](std::string_view key, const std::uint64_t* values) {
    Put(out, key);
    out.write(reinterpret_cast<const char*>(values),
              static_cast<std::streamsize>((columns_.size() + 1) * sizeof(*values)));
  });
}

// What stands in front of it says the group.
bool GroupSums::Load(std::istream& in) {
  if (Take(in) != columns_.size()) return false;
  other_keys_ = Take(in);
  most_missing_ = Take(in);
  for (std::uint64_t& value : others_) value = Take(in);
  for (std::uint64_t rows = Take(in); rows > 0 && in; --rows) {
    std::uint64_t* const values = table_.FindOrAdd(TakeText(in));
    in.read(reinterpret_cast<char*>(values),
            static_cast<std::streamsize>((columns_.size() + 1) * sizeof(*values)));
  }
  return static_cast<bool>(in);
}

GroupSums& TierCounts::Of(const GroupInfo& group) {
  const auto known =
      std::ranges::find_if(groups_, [&](const auto& sums) { return sums->info().id == group.id; });
  if (known != groups_.end()) return **known;
  return *groups_.emplace_back(std::make_unique<GroupSums>(group));
}

void TierCounts::Add(const StatsStore& store, const ToText& to_text) {
  std::vector<std::uint64_t> values;
  for (const auto& group : store.groups()) {
    if (!HasTiers(group->info)) continue;
    GroupSums& sums = Of(group->info);
    const auto pick = [&](const std::uint64_t* meters) {
      values.assign(sums.columns().size(), 0);
      for (std::size_t i = 0; i < values.size(); ++i) {
        for (const int meter : sums.columns()[i].meters) values[i] += meters[meter];
      }
      return values.data();
    };
    const auto add_to = [&](GroupSums* into) {
      group->table.ForEach([&](std::string_view key, const std::uint64_t* meters) {
        into->Add(to_text(group->info, key), pick(meters));
      });
    };
    if (group->pruned_keys == 0) {
      add_to(&sums);
      continue;
    }
    GroupSums part(group->info);
    add_to(&part);
    const std::uint64_t* const others = pick(group->pruned_sums.data());
    part.AddOthers(others, group->pruned_keys, std::min(others[sums.ranked()], group->pruned_most));
    sums.Add(part);
  }
}

KeptTraffic TierCounts::AllTraffic() const {
  for (const auto& sums : groups_) {
    if (sums->info().key_kind != KeyKind::kTotals) continue;
    if (const std::uint64_t* const values = sums->Find("all")) return {values[0], values[1]};
  }
  return {};
}

void TierCounts::Add(const TierCounts& other) {
  for (const auto& sums : other.groups_) Of(sums->info()).Add(*sums);
}

void TierCounts::Prune() {
  for (const auto& sums : groups_) sums->Prune();
}

void TierCounts::PruneTo(std::size_t most) {
  for (const auto& sums : groups_) sums->PruneTo(most, most / 2);
}

std::size_t TierCounts::Keys() const {
  std::size_t keys = 0;
  for (const auto& sums : groups_) keys += sums->size();
  return keys;
}

void TierCounts::Save(std::ostream& out) const {
  Put(out, groups_.size());
  for (const auto& sums : groups_) sums->Save(out);
}

bool TierCounts::Load(std::istream& in) {
  for (std::uint64_t left = Take(in); left > 0; --left) {
    const std::string id = TakeText(in);
    const auto known =
        std::ranges::find_if(groups_, [&](const auto& sums) { return sums->info().id == id; });
    if (!in || known == groups_.end() || !(*known)->Load(in)) return false;
  }
  return static_cast<bool>(in);
}

}  // namespace flow::host
