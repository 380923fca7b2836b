// SPDX-License-Identifier: Apache-2.0
#include "host/command/open_keepers.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/build_text.h"
#include "host/store/store.h"

namespace flow::host {

Keepers::Keepers(StoreOptions store, MeterSetup& setup, Console& console, KeeperMode mode) {
  if (store.directory.empty()) return;
  setup.HearRecords();
  store.program = fmt::format("flowhost {}", BuildText());
  store.home = setup.site_settings().home;
  store.waits = mode == KeeperMode::kWait;
  auto made = std::make_unique<Store>(store, setup.catalog().groups(), setup.stand_ins(), console);
  store_ = made.get();
  keepers_.push_back(std::move(made));
}

std::vector<Keeper*> Keepers::all() const {
  std::vector<Keeper*> all;
  for (const auto& keeper : keepers_) all.push_back(keeper.get());
  return all;
}

std::vector<std::string> Keepers::FinishBy(Writer::Clock::time_point deadline) const {
  std::vector<std::string> late;
  for (const auto& keeper : keepers_) {
    if (!keeper->FinishBy(deadline)) late.emplace_back(keeper->name());
  }
  return late;
}

}  // namespace flow::host
