// SPDX-License-Identifier: Apache-2.0
// flowhost losses: what exporters lost, and where.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerLosses(const LossesOptions& options);

}  // namespace flow::host
