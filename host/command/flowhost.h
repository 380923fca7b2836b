// SPDX-License-Identifier: Apache-2.0
// The program, for main and for tests.
#pragma once

namespace flow::host {

// RunFlowhost gives the exit status; what goes wrong is told on standard error.
int RunFlowhost(int argc, const char* const* argv);

}  // namespace flow::host
