// SPDX-License-Identifier: Apache-2.0
// The files of flows of a store, as a source.
#pragma once

#include <string>
#include <utility>

#include "host/ask/flow_source.h"

namespace flow::host {

class StoreFlowSource final : public FlowSource {
 public:
  explicit StoreFlowSource(std::string directory) : directory_(std::move(directory)) {}

  RankedGroups Rank(const FlowSelection& selection, FlowOrder order, std::size_t top,
                    const std::optional<TimeSpan>& other) override;
  FlowList List(const Expression& filter, const TimeSpan& span, FlowOrder order,
                std::size_t top) override;
  std::vector<std::vector<double>> Lines(const FlowSelection& selection, const Steps& steps,
                                         FlowOrder order,
                                         const std::vector<std::string>& keys) override;
  FlowSteps AddUpSteps(const Expression& filter, const Steps& steps) override;

 private:
  std::string directory_;
};

}  // namespace flow::host
