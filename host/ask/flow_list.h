// SPDX-License-Identifier: Apache-2.0
// Single flows, the first of an order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ask/flow_groups.h"
#include "host/ask/flow_scan.h"
#include "host/ask/flows.h"

namespace flow::host {

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

FlowList ListFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                   FlowOrder order, std::size_t top);

}  // namespace flow::host
