// SPDX-License-Identifier: Apache-2.0
// flowhost compare: one time beside another.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerCompare(const CompareOptions& options);

}  // namespace flow::host
