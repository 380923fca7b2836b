// SPDX-License-Identifier: Apache-2.0
// flowhost flows: single flows, or sums by their fields.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerFlows(const FlowsOptions& options);

}  // namespace flow::host
