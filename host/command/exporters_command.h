// SPDX-License-Identifier: Apache-2.0
// flowhost exporters: who exports, and who fell silent.
#pragma once

#include "host/command/ask_options.h"
#include "host/output/answers.h"

namespace flow::host {

Answered AnswerExporters(const ExportersOptions& options);

}  // namespace flow::host
