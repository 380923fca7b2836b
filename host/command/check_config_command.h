// SPDX-License-Identifier: Apache-2.0
// flowhost check-config: what the plug-in makes of the policy files in a directory.
#pragma once

#include "host/command/options.h"

namespace flow::host {

// RunCheckConfig gives kExitOk, kExitWarnings, or kExitTrouble for policies that cannot be used.
// HostError when there is nothing to check.
int RunCheckConfig(const CheckConfigOptions& options);

}  // namespace flow::host
