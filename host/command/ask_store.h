// SPDX-License-Identifier: Apache-2.0
// The questions to a store, whoever asks them: the command line or the web.
#pragma once

#include "host/command/ask_command_line.h"
#include "host/output/answers.h"

namespace flow::host {

// AskStore throws UsageError where a question cannot be right, HostError where there is no store.
Answered AskStore(const AskCommand& command);

}  // namespace flow::host
