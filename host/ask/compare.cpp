// SPDX-License-Identifier: Apache-2.0
#include "host/ask/compare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "host/ask/flow_groups.h"
#include "host/ask/flows.h"
#include "host/ask/tier_sums.h"
#include "host/ask/top.h"
#include "host/base/number_text.h"

namespace flow::host {
namespace {

// What a key had in one of the times: at least and at most.
struct Bounds {
  std::int64_t least = 0;
  std::int64_t most = 0;
};

struct Pair {
  Bounds now;
  Bounds before;

  [[nodiscard]] std::int64_t Difference() const { return now.least - before.least; }
  [[nodiscard]] bool IsExact() const {
    return now.least == now.most && before.least == before.most;
  }
};

// What is missing in the other time is told as well.
void AddGaps(const Cover& before, const Zone& zone, Answer* answer) {
  for (const AnswerGap& gap : before.gaps) answer->gaps.push_back(gap);
  answer->beside = SpanText(before.span, zone);
}

class SideBySide {
 public:
  SideBySide(StoredCounters* counters, const CompareQuestion& question, const KeyNames& names)
      : counters_(counters), question_(question), names_(names) {}

  Answer Make(const TimeSpan& span, const TimeSpan& against, const Zone& zone) {
    const Cover now = counters_->CoverOf(span);
    const Cover before = counters_->CoverOf(against);
    Answer answer;
    Coverage(counters_, now, &answer);
    answer.what = question_.group;
    AddGaps(before, zone, &answer);
    for (const StoredGroup& group : counters_->Groups(question_.group)) Add(group, now, before);
    answer.columns = {{"key", first_.key_title, ValueKind::kKey},
                      {"name", "Name", ValueKind::kText},
                      {question_.by, "Now", kind_},
                      {question_.by + "_before", "Before", kind_},
                      {"difference", "Difference", kind_},
                      {"change", "Change", ValueKind::kChange}};
    AddRows(&answer);
    return answer;
  }

 private:
  struct Row {
    std::string key;
    const StoredGroup* group;
    Pair pair;
  };

  void Add(const StoredGroup& group, const Cover& now, const Cover& before) {
    groups_.push_back(std::make_unique<StoredGroup>(group));
    const std::size_t at = ColumnOf(group, question_.by);
    if (groups_.size() == 1) {
      first_ = group;
      kind_ = group.columns[at].kind;
    }
    const TierSums sums_now(counters_, group, now, at);
    const TierSums sums_before(counters_, group, before, at);
    constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
    // A key that is not there may have been too small to be kept.
    const Pair unkept{{0, Signed(sums_now.MostUnkept())}, {0, Signed(sums_before.MostUnkept())}};
    std::map<std::string, Pair> pairs;
    for (const TierSums::Key& key : sums_now.Largest(kAll)) {
      Pair& pair = pairs.try_emplace(std::string(key.key), unkept).first->second;
      pair.now = {Signed(key.values[at]), Signed(key.most)};
    }
    for (const TierSums::Key& key : sums_before.Largest(kAll)) {
      Pair& pair = pairs.try_emplace(std::string(key.key), unkept).first->second;
      pair.before = {Signed(key.values[at]), Signed(key.most)};
    }
    for (auto& [key, pair] : pairs) rows_.push_back({key, groups_.back().get(), pair});
  }

  static std::int64_t Signed(std::uint64_t value) { return static_cast<std::int64_t>(value); }

  void AddRows(Answer* answer) {
    const bool is_totals = first_.id == "totals";
    std::ranges::sort(rows_, [&](const Row& a, const Row& b) {
      const auto rank = [&](const Row& row) {
        return is_totals ? row.pair.now.least : std::abs(row.pair.Difference());
      };
      return std::pair(rank(b), a.key) < std::pair(rank(a), b.key);
    });
    const std::size_t shown = std::min(rows_.size(), question_.top);
    for (std::size_t i = 0; i < shown; ++i) {
      const auto& [key, group, pair] = rows_[i];
      AnswerRow row;
      row.values = {key,
                    names_.NameOf(counters_, *group, key),
                    pair.now.least,
                    pair.before.least,
                    pair.Difference(),
                    {}};
      if (pair.before.least > 0) {
        row.values.back() =
            static_cast<double>(pair.now.least) / static_cast<double>(pair.before.least);
      }
      row.is_least = !pair.IsExact();
      answer->is_exact &= pair.IsExact();
      answer->rows.push_back(std::move(row));
    }
  }

  StoredCounters* counters_;
  const CompareQuestion& question_;
  const KeyNames& names_;
  std::vector<std::unique_ptr<StoredGroup>> groups_;
  StoredGroup first_;
  ValueKind kind_ = ValueKind::kBytes;
  std::vector<Row> rows_;
};

Expression FilterOf(const IpAddress& host) {
  Expression filter;
  filter.kind = Expression::Kind::kCondition;
  filter.condition.values = {AddressRange{host, host}};
  return filter;
}

}  // namespace

Answer AskCompare(StoredCounters* counters, const CompareQuestion& question, const TimeSpan& span,
                  const TimeSpan& against, const KeyNames& names, const Zone& zone) {
  return SideBySide(counters, question, names).Make(span, against, zone);
}

Answer AskNewPeers(StoredCounters* counters, const IpAddress& host, std::size_t top,
                   const TimeSpan& span, const TimeSpan& against, const KeyNames& names,
                   const Zone& zone) {
  const Cover cover = counters->CoverOf(span, kMinuteSeconds);
  const Cover before = counters->CoverOf(against, kMinuteSeconds);
  const auto fields = ParseFields("host");
  const Expression filter = FilterOf(host);
  // The host stands beside its peers; of all that are new it has the most.
  const RankedGroups peers = counters->flows().Rank({filter, cover.span, fields}, FlowOrder::kBytes,
                                                    std::max<std::size_t>(top, 1) + 1, before.span);
  Answer answer;
  FlowCoverage(counters, cover, peers.scan, &answer);
  answer.what = fmt::format("new peers of {}", host.Text());
  AddGaps(before, zone, &answer);
  answer.columns = {
      {"key", "Host", ValueKind::kKey},      {"name", "Name", ValueKind::kText},
      {"bytes", "Bytes", ValueKind::kBytes}, {"packets", "Packets", ValueKind::kPackets},
      {"flows", "Flows", ValueKind::kCount}, {"first_ms", "First seen", ValueKind::kTime}};
  std::size_t others = peers.count;
  for (const auto& [key, sums] : peers.first) {
    const std::string peer = FieldTexts(fields, key).front();
    if (peer == host.Text()) --others;
    if (peer == host.Text() || answer.rows.size() == top) continue;
    --others;
    AnswerRow row;
    row.values = {peer,
                  FieldName(*fields.front(), peer, names),
                  static_cast<std::int64_t>(sums.bytes),
                  static_cast<std::int64_t>(sums.packets),
                  static_cast<std::int64_t>(sums.flows),
                  static_cast<std::int64_t>(sums.first)};
    answer.rows.push_back(std::move(row));
  }
  if (others > 0) answer.notes.push_back(fmt::format("and {} more", Thousands(others)));
  if (answer.rows.empty()) answer.notes.emplace_back("no new ones");
  return answer;
}

}  // namespace flow::host
