// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_lines.h"

#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string_view>

#include "host/ask/whole_flows.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

class LineMaker : public FlowTaker {
 public:
  LineMaker(const std::vector<const FlowField*>& fields, const Steps& steps,
            const std::vector<std::string>& keys)
      : keys_(fields), steps_(steps), lines_(keys.size() + 2, Line(steps.count)) {
    for (std::size_t i = 0; i < keys.size(); ++i) places_.emplace(keys[i], i);
  }

  // Columns are the value, two that every scan has, the minute, and those of the fields.
  void Take(const FlowRow& row) override {
    constexpr std::size_t kValue = 2;
    constexpr std::size_t kMinute = 3;
    constexpr std::size_t kFirstField = 4;
    const auto value = static_cast<double>(row.Integer(kValue));
    const std::size_t step = steps_.At(row.file().hour() + row.Integer(kMinute) * kMinuteSeconds);
    lines_.back()[step] += value;
    keys_.ForEach(row, kFirstField, [&](std::string_view key) {
      lines_[lines_.size() - 2][step] += value;
      const auto place = places_.find(key);
      if (place != places_.end()) lines_[place->second][step] += value;
    });
  }

  [[nodiscard]] const std::vector<Line>& lines() const { return lines_; }

 private:
  FlowKeys keys_;
  const Steps& steps_;
  absl::flat_hash_map<std::string_view, std::size_t> places_;
  std::vector<Line> lines_;
};

const char* AmountFor(FlowOrder order) {
  if (order == FlowOrder::kPackets) return "{packets}";
  return order == FlowOrder::kFlows ? "{records}" : "{bytes}";
}

}  // namespace

std::vector<Line> FlowLines(const std::string& directory, const Expression& filter,
                            const std::vector<const FlowField*>& fields, const Steps& steps,
                            FlowOrder order, const std::vector<std::string>& keys) {
  ScanQuestion question{filter,
                        steps.cover.span,
                        HasDirections(filter) || HasDirections(fields),
                        {"{bytes}", "{packets}", AmountFor(order), "minute"}};
  for (const FlowField* const field : fields) AddColumns(*field, &question.columns);
  std::vector<std::unique_ptr<LineMaker>> makers;
  std::vector<FlowTaker*> takers;
  for (std::size_t i = 0; i < ScanThreads(); ++i) {
    makers.push_back(std::make_unique<LineMaker>(fields, steps, keys));
    takers.push_back(makers.back().get());
  }
  ScanFlows(directory, question, takers);
  std::vector<Line> lines(keys.size() + 2, Line(steps.count));
  for (const auto& maker : makers) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
      std::ranges::transform(lines[i], maker->lines()[i], lines[i].begin(), std::plus());
    }
  }
  return lines;
}

}  // namespace flow::host
