// flowhost flows: single flows, or sums by their fields.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunFlows(const FlowsOptions& options);

}  // namespace flow::host
