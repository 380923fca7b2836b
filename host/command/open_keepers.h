// SPDX-License-Identifier: Apache-2.0
// Who keeps what a run meters.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/command/meter_setup.h"
#include "host/period/keeper.h"
#include "host/store/store_options.h"

namespace flow::host {

// What becomes of what a keeper cannot take in time.
class Store;

enum class KeeperMode {
  kWait,  // whoever counts waits
  kDrop,  // it is let go
};

class Keepers {
 public:
  // Opens those that the options ask for, before the lanes. HostError when one cannot be opened.
  Keepers(StoreOptions store, MeterSetup& setup, Console& console, KeeperMode mode);

  [[nodiscard]] bool empty() const { return keepers_.empty(); }
  [[nodiscard]] std::vector<Keeper*> all() const;
  // Null where nothing is kept in one.
  [[nodiscard]] const Store* store() const { return store_; }

  // FinishBy gives the names of those that are not done by the deadline.
  [[nodiscard]] std::vector<std::string> FinishBy(Writer::Clock::time_point deadline) const;

 private:
  std::vector<std::unique_ptr<Keeper>> keepers_;
  const Store* store_ = nullptr;  // one of them
};

}  // namespace flow::host
