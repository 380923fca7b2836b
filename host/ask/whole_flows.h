// SPDX-License-Identifier: Apache-2.0
// Flows that last longer than a minute have a row in the store for each, and some have several.
// Here they are whole again: what is asked of bytes, packets and duration is asked of all of a
// flow.
//
// Rows are parts of one flow where both ends, protocol, exporter and interfaces are the same, and
// no more than some minutes lie between them: ports are used again.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/ask/expression.h"
#include "host/ask/flow_groups.h"
#include "host/ask/flow_scan.h"

namespace flow::host {

// Between parts of a flow.
inline constexpr std::int64_t kLongestSilenceMs = 300'000;

// A filter taken apart. Where amounts are alternatives to something else, they are asked of rows.
struct SplitFilter {
  Expression rows;   // what can be asked of a row
  Expression whole;  // what has to be asked of the flow: an empty one holds for every flow
};
SplitFilter SplitByAmounts(const Expression& filter);

// Where a row stands.
struct RowPlace {
  std::uint32_t hour = 0;  // since 1970, in hours
  std::uint32_t row = 0;
  bool is_reverse = false;

  friend auto operator<=>(const RowPlace&, const RowPlace&) = default;
};

// A part of a flow, small: there are many.
struct FlowPart {
  std::uint64_t flow;  // that it is of, by hash
  std::uint64_t bytes;
  std::uint64_t packets;
  std::int64_t first;  // milliseconds since 1970
  std::uint32_t duration;
  std::uint32_t records;
  std::uint32_t hour;
  std::uint32_t row : 31;
  std::uint32_t is_reverse : 1;

  [[nodiscard]] std::int64_t last() const { return first + duration; }
  [[nodiscard]] RowPlace place() const { return {hour, row, is_reverse != 0}; }
};

// Takes whole flows, each with its parts in the order of their times.
class WholeFlowTaker {
 public:
  WholeFlowTaker() = default;
  WholeFlowTaker(const WholeFlowTaker&) = delete;
  WholeFlowTaker& operator=(const WholeFlowTaker&) = delete;
  virtual ~WholeFlowTaker() = default;

  virtual void Take(const FlowAmounts& whole, std::span<const FlowPart> parts) = 0;
};

// JoinFlows hands every flow that passes to one of the takers, each in its own thread. Where there
// are too many rows to bring together it hands out none, and rows_alone is set in the result.
ScanResult JoinFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                     bool has_directions, const std::vector<WholeFlowTaker*>& takers);

// ScanFlows hands the rows of every flow that passes to one of the takers.
ScanResult ScanFlows(const std::string& directory, const ScanQuestion& question,
                     const std::vector<FlowTaker*>& takers);

}  // namespace flow::host
