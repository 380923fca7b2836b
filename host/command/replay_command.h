// SPDX-License-Identifier: Apache-2.0
// flowhost replay: capture files through the library.
#pragma once

#include "host/command/options.h"

namespace flow::host {

// RunReplay gives the exit status. HostError and UsageError for what makes a replay impossible;
// trouble with one capture is told and the others are read.
int RunReplay(const ReplayOptions& options);

}  // namespace flow::host
