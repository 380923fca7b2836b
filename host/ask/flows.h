// SPDX-License-Identifier: Apache-2.0
// Questions about flows: the largest ones, or sums by their fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ask/answer.h"
#include "host/ask/expression.h"
#include "host/ask/flow_fields.h"
#include "host/ask/flow_source.h"
#include "host/ask/key_names.h"
#include "host/ask/stored_counters.h"

namespace flow::host {

// ParseFlowOrder takes "bytes", "packets", "flows", "duration", "first" and "last". UsageError.
FlowOrder ParseFlowOrder(const std::string& text);

struct FlowsQuestion {
  std::string filter_text;
  Expression filter;
  std::vector<const FlowField*> fields;  // empty for single flows
  FlowOrder order = FlowOrder::kBytes;   // kFirst and kLast: earliest first; else largest
  std::size_t top = 10;
  // Seconds; not 0: groups get lines of such steps.
  std::int64_t step = 0;
};

Answer AskFlows(StoredCounters* counters, const FlowsQuestion& question, const TimeSpan& span,
                const KeyNames& names);

// FlowCoverage is Coverage for an answer that was made from flows.
void FlowCoverage(StoredCounters* counters, const Cover& cover, const ScanResult& scan,
                  Answer* answer);

}  // namespace flow::host
