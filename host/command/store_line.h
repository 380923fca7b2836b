// SPDX-License-Identifier: Apache-2.0
// The options of commands that write a store.
#pragma once

#include "host/store/store_options.h"

namespace CLI {
class App;
}

namespace flow::host {

void AddStoreOptions(CLI::App* app, StoreOptions* options);

}  // namespace flow::host
