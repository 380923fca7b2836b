// SPDX-License-Identifier: Apache-2.0
// flowhost store: what a store has, how large it is and how far it reaches.
#pragma once

#include "host/command/options.h"

namespace flow::host {

int RunStore(const StoreCommandOptions& options);

}  // namespace flow::host
