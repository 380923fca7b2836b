// SPDX-License-Identifier: Apache-2.0
// The store of a run that meters.
#pragma once

#include <memory>

#include "host/command/meter_setup.h"
#include "host/store/store.h"

namespace flow::host {

// What becomes of what the store cannot take in time.
enum class StoreMode {
  kWait,  // whoever counts waits
  kDrop,  // it is let go
};

// OpenStore opens the store that the options ask for; null when they ask for none. It comes before
// the lanes. HostError when it cannot be opened.
std::unique_ptr<Store> OpenStore(StoreOptions options, MeterSetup& setup, Console& console,
                                 StoreMode mode);

}  // namespace flow::host
