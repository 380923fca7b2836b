// Flows added up by any of their fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/flow_fields.h"
#include "host/ask/flow_scan.h"
#include "host/engine/key_table.h"

namespace flow::host {

// The sums of a group, as they stand in its table.
struct FlowSums {
  std::uint64_t bytes;
  std::uint64_t packets;
  std::uint64_t flows;  // records of exporters
  std::uint64_t first;  // milliseconds since 1970
  std::uint64_t last;
};
inline constexpr std::size_t kFlowSumWords = sizeof(FlowSums) / sizeof(std::uint64_t);

void AddFlows(const FlowSums& part, FlowSums* into);

struct FlowGroups {
  KeyTable table{kFlowSumWords};
  FlowSums total{};  // each flow once, also where fields of either end count it at both
  ScanResult scan;

  static const FlowSums& Sums(const std::uint64_t* values) {
    return *reinterpret_cast<const FlowSums*>(values);
  }
};

// GroupFlows counts a flow for both ends of fields that mean either one, and once where both are
// the same. With `step` (seconds) the table has the steps of time since the span's start behind the
// fields.
FlowGroups GroupFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                      const std::vector<const FlowField*>& fields, std::int64_t step = 0);

// StepOf gives the step of a key that has nothing but it.
std::int64_t StepOf(std::string_view key);

// FieldTexts takes a key apart.
std::vector<std::string> FieldTexts(const std::vector<const FlowField*>& fields,
                                    std::string_view key);

}  // namespace flow::host
