// SPDX-License-Identifier: Apache-2.0
#include "host/command/policy_reload.h"

#include <fmt/format.h>

#include <string>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/command/listen_ports.h"

namespace flow::host {

void PolicyReload::Ask() {
  again_ = check_.has_value();  // one is under way, and may have read what was there before
  if (check_) return;
  try {
    check_.emplace(setup_.plugin_path(), setup_.site_settings());
  } catch (const HostError& error) {
    console_.Error(error.what());
  }
}

std::optional<bool> PolicyReload::Look() {
  if (!check_) return std::nullopt;
  const std::optional<bool> usable = check_->Result();
  if (!usable) return std::nullopt;
  check_.reset();
  if (again_) {
    Ask();
    return std::nullopt;
  }
  if (*usable) {
    TellMeters();
  } else {
    console_.Error(
        "nothing is reloaded: a policy cannot be used, see above; the one in force stays");
  }
  return usable;
}

void PolicyReload::TellMeters() {
  setup_.lanes().ForEach([this](Lane& lane) {
    for (const std::string& told : lane.LookAtPolicies(NowMicros())) {
      console_.Notice(fmt::format("SIGHUP: {}", told));
    }
    if (lane.WaitsForPolicies()) lane.ReplaceMeters(NowMicros());
  });
}

}  // namespace flow::host
