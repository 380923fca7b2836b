// SPDX-License-Identifier: Apache-2.0
#include "host/ask/top.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "host/ask/steps.h"
#include "host/ask/tier_sums.h"
#include "host/base/error.h"
#include "host/base/number_text.h"

namespace flow::host {
namespace {

// Groups that are asked for together: hosts of IPv4 and of IPv6.
struct Part {
  StoredGroup group;
  std::unique_ptr<TierSums> sums;
};

struct Place {
  const Part* part;
  TierSums::Key key;
};

using Values = std::vector<std::optional<std::uint64_t>>;

// The values of a row in the order of the first group's columns; others may lack some.
Values ValuesOf(const StoredGroup& first, const StoredGroup& group, const std::uint64_t* values) {
  Values ordered(first.columns.size());
  for (std::size_t i = 0; i < group.columns.size(); ++i) {
    const auto same =
        std::ranges::find(first.columns, group.columns[i].name, &StoredGroup::Column::name);
    if (same != first.columns.end()) {
      ordered[static_cast<std::size_t>(same - first.columns.begin())] = values[i];
    }
  }
  return ordered;
}

class TopAnswer {
 public:
  TopAnswer(StoredCounters* counters, const TopQuestion& question, const TimeSpan& asked,
            const KeyNames& names)
      : counters_(counters),
        question_(question),
        names_(names),
        asked_(asked),
        cover_(counters->CoverOf(asked)) {
    for (StoredGroup& group : counters->Groups(question.group)) {
      const std::size_t ranking = ColumnOf(group, question.by);
      auto sums = std::make_unique<TierSums>(counters, group, cover_, ranking);
      parts_.push_back({std::move(group), std::move(sums)});
    }
    ranking_ = ColumnOf(First(), question.by);
    shown_.resize(First().columns.size());
    Coverage(counters, cover_, &answer_);
  }

  Answer Make() {
    answer_.what = question_.group;
    AddColumns();
    const std::vector<Place> places = Largest();
    for (const Place& place : places) AddRow(place);
    if (question_.wants_lines) AddLines(places);
    AddSums();
    if (question_.step != 0) AddSteps(places);
    answer_.is_exact = IsExact(places);
    if (!places.empty() && !answer_.is_exact) {
      answer_.notes.emplace_back(
          "\u2265: not among the largest of every bucket that was added up; it may have more");
    }
    return std::move(answer_);
  }

 private:
  [[nodiscard]] const StoredGroup& First() const { return parts_.front().group; }
  [[nodiscard]] double Seconds() const { return static_cast<double>(cover_.span.Seconds()); }
  [[nodiscard]] ValueKind RankingKind() const { return First().columns[ranking_].kind; }

  // What all traffic has of the ranking column; nothing where that is not counted.
  [[nodiscard]] double All() const {
    if (RankingKind() == ValueKind::kBytes) return static_cast<double>(cover_.bytes);
    if (RankingKind() == ValueKind::kPackets) return static_cast<double>(cover_.packets);
    return 0;
  }

  void AddColumns() {
    answer_.columns = {{"key", First().key_title, ValueKind::kKey},
                       {"name", "Name", ValueKind::kText},
                       {"share", "Share", ValueKind::kShare}};
    // What it is ranked by stands first.
    order_ = {ranking_};
    for (std::size_t i = 0; i < First().columns.size(); ++i) {
      if (i != ranking_) order_.push_back(i);
    }
    for (const std::size_t i : order_) {
      const StoredGroup::Column& column = First().columns[i];
      answer_.columns.push_back({column.name, column.title, column.kind});
      if (i != ranking_) continue;
      const bool is_bytes = column.kind == ValueKind::kBytes;
      answer_.columns.push_back({is_bytes ? "bits_per_second" : "per_second", "Rate",
                                 is_bytes ? ValueKind::kBitRate : ValueKind::kPacketRate});
    }
    if (question_.wants_lines) answer_.columns.push_back({"line", "", ValueKind::kLine});
  }

  [[nodiscard]] std::vector<Place> Largest() const {
    std::vector<Place> places;
    for (const Part& part : parts_) {
      for (const TierSums::Key& key : part.sums->Largest(question_.top)) {
        places.push_back({&part, key});
      }
    }
    std::ranges::stable_sort(places, std::greater(), [](const Place& place) {
      const std::size_t ranking = place.part->sums->ranking();
      return place.key.values[ranking];
    });
    places.resize(std::min(places.size(), question_.top));
    return places;
  }

  AnswerRow Row(std::string key, std::string name, const Values& values) const {
    AnswerRow row;
    row.values = {std::move(key), std::move(name)};
    const auto ranked = static_cast<double>(values[ranking_].value_or(0));
    row.values.emplace_back();
    if (All() > 0) row.values.back() = ranked / All();
    for (const std::size_t i : order_) {
      row.values.emplace_back();
      if (values[i]) row.values.back() = static_cast<std::int64_t>(*values[i]);
      if (i != ranking_) continue;
      const int bits = RankingKind() == ValueKind::kBytes ? 8 : 1;
      row.values.emplace_back(ranked * bits / Seconds());
    }
    if (question_.wants_lines) row.values.emplace_back();
    return row;
  }

  void AddRow(const Place& place) {
    const StoredGroup& group = place.part->group;
    const std::string key(place.key.key);
    const auto values = ValuesOf(First(), group, place.key.values);
    AnswerRow row = Row(key, names_.NameOf(counters_, group, key), values);
    row.is_least = place.key.most > values[ranking_];
    for (std::size_t i = 0; i < values.size(); ++i) shown_[i] += values[i].value_or(0);
    answer_.rows.push_back(std::move(row));
  }

  // The keys of a part that are shown, and their rows in the answer.
  struct Shown {
    std::vector<std::string> keys;
    std::vector<std::size_t> rows;
  };
  static Shown ShownOf(const Part& part, const std::vector<Place>& places) {
    Shown shown;
    for (std::size_t i = 0; i < places.size(); ++i) {
      if (places[i].part != &part) continue;
      shown.keys.emplace_back(places[i].key.key);
      shown.rows.push_back(i);
    }
    return shown;
  }

  void AddLines(const std::vector<Place>& places) {
    for (const Part& part : parts_) {
      const auto [keys, rows] = ShownOf(part, places);
      if (keys.empty()) continue;
      auto lines = LinesOf(counters_, part.group, cover_.span, question_.by, keys);
      for (std::size_t i = 0; i < lines.size(); ++i) {
        answer_.rows[rows[i]].line = std::move(lines[i]);
      }
    }
  }

  // What the others had is what all keys had without those that are shown.
  void AddSteps(const std::vector<Place>& places) {
    const Steps steps = StepsOf(counters_, asked_, question_.step, &answer_.notes);
    DescribeSteps(counters_, steps, &answer_);
    Line others(steps.count);
    for (const Part& part : parts_) {
      const auto [keys, rows] = ShownOf(part, places);
      auto lines = CounterLines(counters_, part.group, steps, question_.by, keys);
      std::ranges::transform(others, lines.back(), others.begin(), std::plus());
      for (std::size_t i = 0; i < rows.size(); ++i) {
        std::ranges::transform(others, lines[i], others.begin(), std::minus());
        answer_.rows[rows[i]].line = std::move(lines[i]);
      }
    }
    if (answer_.others) answer_.others->line = std::move(others);
    if (answer_.total) {
      answer_.total->line = TrafficLine(counters_, steps, RankingKind() == ValueKind::kPackets);
    }
  }

  // The others, so that columns add up, and all traffic, which a flow of two hosts has once.
  void AddSums() {
    Values others(First().columns.size(), 0);
    std::uint64_t keys = 0;
    bool knows_keys = true;
    for (const Part& part : parts_) {
      const Values totals = ValuesOf(First(), part.group, part.sums->totals().data());
      for (std::size_t i = 0; i < totals.size(); ++i) {
        others[i] = others[i] && totals[i] ? std::optional(*others[i] + *totals[i]) : std::nullopt;
      }
      keys += part.sums->keys();
      knows_keys &= part.sums->knows_keys();
    }
    for (std::size_t i = 0; i < others.size(); ++i) {
      if (others[i]) *others[i] -= shown_[i];
    }
    const std::uint64_t beyond = keys - answer_.rows.size();
    if (beyond > 0) {
      answer_.others = Row(std::string(kOthersKey), "", others);
      answer_.others_text =
          fmt::format("{}{} more", knows_keys ? "" : "at least ", Thousands(beyond));
    }
    if (All() == 0) return;
    Values all(First().columns.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
      const std::string& name = First().columns[i].name;
      if (name == "bytes") all[i] = static_cast<std::uint64_t>(cover_.bytes);
      if (name == "packets") all[i] = static_cast<std::uint64_t>(cover_.packets);
    }
    answer_.total = Row("all traffic", "", all);
  }

  // Nobody who is not shown can have more than one who is.
  [[nodiscard]] bool IsExact(const std::vector<Place>& places) const {
    if (places.empty()) return true;
    std::uint64_t smallest = std::numeric_limits<std::uint64_t>::max();
    for (const Place& place : places) {
      smallest = std::min(smallest, place.key.values[place.part->sums->ranking()]);
    }
    const bool has_least =
        std::ranges::any_of(answer_.rows, [](const AnswerRow& row) { return row.is_least; });
    return !has_least && std::ranges::all_of(parts_, [&](const Part& part) {
      const auto shown = static_cast<std::size_t>(std::ranges::count(places, &part, &Place::part));
      return part.sums->MostBeyond(shown) <= smallest;
    });
  }

  StoredCounters* counters_;
  const TopQuestion& question_;
  const KeyNames& names_;
  TimeSpan asked_;
  Cover cover_;
  std::vector<Part> parts_;
  std::size_t ranking_ = 0;
  std::vector<std::size_t> order_;    // of the first group's columns
  std::vector<std::uint64_t> shown_;  // sums over the rows
  Answer answer_;
};

}  // namespace

std::size_t ColumnOf(const StoredGroup& group, const std::string& name) {
  const auto found = std::ranges::find(group.columns, name, &StoredGroup::Column::name);
  if (found != group.columns.end()) {
    return static_cast<std::size_t>(found - group.columns.begin());
  }
  std::string all;
  for (const auto& column : group.columns) all += (all.empty() ? "" : ", ") + column.name;
  throw UsageError(fmt::format("{} are not counted by {}; there are {}", group.id, name, all));
}

void Coverage(StoredCounters* counters, const Cover& cover, Answer* answer) {
  answer->span = cover.span;
  answer->source = cover.Source();
  answer->gaps = cover.gaps;
  answer->losses = counters->LossesOf(cover);
  if (cover.is_widened) {
    answer->notes.emplace_back("of this time only longer spans are kept, which are shown whole");
  }
  if (cover.parts.empty()) answer->notes.emplace_back("the store has no data of this time");
}

Answer AskTop(StoredCounters* counters, const TopQuestion& question, const TimeSpan& span,
              const KeyNames& names) {
  return TopAnswer(counters, question, span, names).Make();
}

}  // namespace flow::host
