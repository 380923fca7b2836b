// SPDX-License-Identifier: Apache-2.0
// What groups of flows had step by step.
#pragma once

#include <string>
#include <vector>

#include "host/ask/flow_fields.h"
#include "host/ask/flows.h"
#include "host/ask/steps.h"

namespace flow::host {

// FlowLines has a line for each key as GroupFlows makes it, then one of what all groups had
// together, and last one that has each flow once. `order` says what is added up: packets, flows,
// else bytes.
std::vector<Line> FlowLines(const std::string& directory, const Expression& filter,
                            const std::vector<const FlowField*>& fields, const Steps& steps,
                            FlowOrder order, const std::vector<std::string>& keys);

}  // namespace flow::host
