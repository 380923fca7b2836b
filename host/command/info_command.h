// SPDX-License-Identifier: Apache-2.0
// flowhost info: what the plug-in offers.
#pragma once

#include "host/command/options.h"

namespace flow::host {

int RunInfo(const InfoOptions& options);

}  // namespace flow::host
