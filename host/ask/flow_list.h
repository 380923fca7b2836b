// SPDX-License-Identifier: Apache-2.0
// Single flows, the first of an order.
#pragma once

#include <cstddef>
#include <string>

#include "host/ask/flow_source.h"

namespace flow::host {

FlowList ListFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                   FlowOrder order, std::size_t top);

}  // namespace flow::host
