// SPDX-License-Identifier: Apache-2.0
// flowhost top: the largest keys of a group of counters.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerTop(const TopOptions& options);

}  // namespace flow::host
