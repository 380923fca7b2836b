// SPDX-License-Identifier: Apache-2.0
// Flows that were taken out of a store, with their texts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/engine/flow_table.h"
#include "host/engine/flow_totals.h"

namespace flow::host {

// In place of a text that there is no room for.
inline constexpr std::string_view kTextNotKept = "(one of too many texts)";

struct FlowBatch {
  FlowTable table = {};
  std::vector<std::string> texts;  // by number, from 1
  FlowSums let_go = {};            // of their time, for want of memory
  bool are_shown = false;          // were counted as reports show them, and have no texts

  // LetGo keeps no more than what the flows carried together.
  void LetGo() {
    table.ForEachPacked([this](std::string_view, const FlowTotals& flow) { let_go.Add(flow); });
    table = {};
  }

  [[nodiscard]] std::string_view TextOf(std::uint32_t number) const {
    return number == 0 ? std::string_view() : std::string_view(texts[number - 1]);
  }
};

}  // namespace flow::host
