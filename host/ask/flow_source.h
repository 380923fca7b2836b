// SPDX-License-Identifier: Apache-2.0
// Where questions about flows are put: the files of a store, or a server that has them in a table.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "host/ask/expression.h"
#include "host/ask/times.h"

namespace flow::host {

struct FlowField;
struct Steps;

// The sums of flows.
struct FlowAmounts {
  std::uint64_t bytes;
  std::uint64_t packets;
  std::uint64_t flows;  // records of exporters
  std::uint64_t first;  // milliseconds since 1970
  std::uint64_t last;
};

// Exporters can claim anything; what answers show has a sign. Two of it do not overflow.
inline constexpr std::uint64_t kLargestAmount = std::numeric_limits<std::int64_t>::max();

inline void AddFlows(const FlowAmounts& part, FlowAmounts* into) {
  const bool is_new = into->first == 0;
  into->bytes = std::min(into->bytes + part.bytes, kLargestAmount);
  into->packets = std::min(into->packets + part.packets, kLargestAmount);
  into->flows += part.flows;
  into->first = is_new ? part.first : std::min(into->first, part.first);
  into->last = std::max(into->last, part.last);
}

enum class FlowOrder : std::uint8_t { kBytes, kPackets, kFlows, kDuration, kFirst, kLast };

// RankOf is what an order goes by: larger is earlier.
std::int64_t RankOf(const FlowAmounts& sums, FlowOrder order);

// What there was no room to keep.
struct FlowsNotKept {
  std::int64_t flows = 0;
  std::int64_t bytes = 0;  // not known where it is 0
  std::int64_t packets = 0;
};

struct ScanResult {
  std::vector<TimeSpan> missing;  // hours without any flows
  FlowsNotKept not_kept;
  bool rows_alone = false;  // too many to bring the parts of flows together
};

// AddMissing tells of an hour of a span; hours come in their order.
void AddMissing(std::int64_t hour, const TimeSpan& span, ScanResult* result);

// Which flows, and the fields that they are added up by: a flow counts for both ends of fields that
// mean either one, and once where both are the same.
struct FlowSelection {
  const Expression& filter;
  TimeSpan span;
  const std::vector<const FlowField*>& fields;
};

// The first groups of an order; equal ones in the order of their keys.
struct RankedGroups {
  struct Group {
    std::string key;  // as PutField makes it
    FlowAmounts sums;
  };

  std::vector<Group> first;
  std::size_t count = 0;  // of all
  FlowAmounts all{};      // the sums of all
  FlowAmounts total{};    // each flow once, also where fields of either end count it at both
  ScanResult scan;
};

struct ListedFlow {
  std::int64_t first_ms = 0;
  std::int64_t last_ms = 0;
  std::int64_t bytes = 0;
  std::int64_t packets = 0;
  std::int64_t flows = 0;
  std::vector<std::string> fields;  // as ListedFields says
};

struct FlowList {
  std::vector<ListedFlow> flows;
  FlowAmounts total{};
  std::uint64_t count = 0;  // all that pass
  ScanResult scan;
};

// The fields of listed flows: protocol, ends, exporter and interfaces.
const std::vector<const FlowField*>& ListedFields();

struct FlowSteps {
  std::vector<FlowAmounts> steps;
  ScanResult scan;
};

// HostError where it cannot be answered.
class FlowSource {
 public:
  FlowSource() = default;
  FlowSource(const FlowSource&) = delete;
  FlowSource& operator=(const FlowSource&) = delete;
  virtual ~FlowSource() = default;

  // Rank adds up; groups that had flows in the other span as well are left out.
  virtual RankedGroups Rank(const FlowSelection& selection, FlowOrder order, std::size_t top,
                            const std::optional<TimeSpan>& other) = 0;

  // List has single flows: whole ones, whose parts of several minutes are brought together.
  virtual FlowList List(const Expression& filter, const TimeSpan& span, FlowOrder order,
                        std::size_t top) = 0;

  // What each of these groups has step by step; then what all groups have, and all flows.
  virtual std::vector<std::vector<double>> Lines(const FlowSelection& selection, const Steps& steps,
                                                 FlowOrder order,
                                                 const std::vector<std::string>& keys) = 0;

  // All flows, step by step.
  virtual FlowSteps AddUpSteps(const Expression& filter, const Steps& steps) = 0;
};

}  // namespace flow::host
