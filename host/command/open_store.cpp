// SPDX-License-Identifier: Apache-2.0
#include "host/command/open_store.h"

#include <fmt/format.h>

#include "host/base/build_text.h"

namespace flow::host {

std::unique_ptr<Store> OpenStore(StoreOptions options, MeterSetup& setup, Console& console,
                                 StoreMode mode) {
  if (options.directory.empty()) return nullptr;
  setup.HearRecords();
  options.program = fmt::format("flowhost {}", BuildText());
  options.home = setup.site_settings().home;
  options.waits = mode == StoreMode::kWait;
  return std::make_unique<Store>(options, setup.catalog().groups(), setup.stand_ins(), console);
}

}  // namespace flow::host
