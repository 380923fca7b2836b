// SPDX-License-Identifier: Apache-2.0
#include "host/ask/store_flow_source.h"

#include <algorithm>
#include <string_view>

#include "host/ask/flow_groups.h"
#include "host/ask/flow_lines.h"
#include "host/ask/flow_list.h"
#include "host/ask/steps.h"

namespace flow::host {
namespace {

// What a group is ranked by stands ready.
struct Ranked {
  std::string_view key;
  const FlowAmounts* sums;
  std::int64_t rank;
};

bool IsBefore(const Ranked& a, const Ranked& b) {
  return std::pair(b.rank, a.key) < std::pair(a.rank, b.key);
}

// The first of an order, in a heap with the last of them in front.
class Ranking {
 public:
  explicit Ranking(std::size_t top) : top_(top) {}

  void Add(const Ranked& ranked) {
    if (first_.size() == top_) {
      if (top_ == 0 || !IsBefore(ranked, first_.front())) return;
      std::ranges::pop_heap(first_, IsBefore);
      first_.pop_back();
    }
    first_.push_back(ranked);
    std::ranges::push_heap(first_, IsBefore);
  }

  std::vector<RankedGroups::Group> Finish() {
    std::ranges::sort_heap(first_, IsBefore);
    std::vector<RankedGroups::Group> groups;
    for (const Ranked& ranked : first_) groups.push_back({std::string(ranked.key), *ranked.sums});
    return groups;
  }

 private:
  std::size_t top_;
  std::vector<Ranked> first_;
};

}  // namespace

RankedGroups StoreFlowSource::Rank(const FlowSelection& selection, FlowOrder order, std::size_t top,
                                   const std::optional<TimeSpan>& other) {
  const auto& [filter, span, fields] = selection;
  FlowGroups groups = GroupFlows(directory_, filter, span, fields);
  FlowGroups known;
  if (other) known = GroupFlows(directory_, filter, *other, fields);
  RankedGroups ranked;
  Ranking ranking(top);
  groups.table.ForEach([&](std::string_view key, const FlowAmounts& sums) {
    if (other && known.table.Find(key) != nullptr) return;
    AddFlows(sums, &ranked.all);
    ++ranked.count;
    ranking.Add({key, &sums, RankOf(sums, order)});
  });
  ranked.first = ranking.Finish();
  ranked.total = groups.total;
  ranked.scan = std::move(groups.scan);
  return ranked;
}

FlowList StoreFlowSource::List(const Expression& filter, const TimeSpan& span, FlowOrder order,
                               std::size_t top) {
  return ListFlows(directory_, filter, span, order, top);
}

std::vector<std::vector<double>> StoreFlowSource::Lines(const FlowSelection& selection,
                                                        const Steps& steps, FlowOrder order,
                                                        const std::vector<std::string>& keys) {
  return FlowLines(directory_, selection.filter, selection.fields, steps, order, keys);
}

FlowSteps StoreFlowSource::AddUpSteps(const Expression& filter, const Steps& steps) {
  FlowGroups groups = GroupFlows(directory_, filter, steps.cover.span, {}, steps.seconds);
  FlowSteps sums{std::vector<FlowAmounts>(steps.count), std::move(groups.scan)};
  groups.table.ForEach([&](std::string_view key, const FlowAmounts& part) {
    AddFlows(part, &sums.steps[steps.At(steps.cover.span.from + StepOf(key) * steps.seconds)]);
  });
  return sums;
}

}  // namespace flow::host
