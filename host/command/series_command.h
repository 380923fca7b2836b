// SPDX-License-Identifier: Apache-2.0
// flowhost series: how much there was, step by step.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerSeries(const SeriesOptions& options);

}  // namespace flow::host
