// SPDX-License-Identifier: Apache-2.0
// flowhost listen: live datagrams through the library.
#pragma once

#include "host/command/options.h"

namespace flow::host {

// RunListen gives the exit status. HostError and UsageError for what makes listening impossible.
int RunListen(const ListenOptions& options);

}  // namespace flow::host
