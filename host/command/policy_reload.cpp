// SPDX-License-Identifier: Apache-2.0
#include "host/command/policy_reload.h"

#include <fmt/format.h>

#include <string>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/command/listen_ports.h"

namespace flow::host {

void PolicyReload::Ask() {
  again_ = is_checking_;  // one is under way, and may have read what was there before
  if (is_checking_) return;
  try {
    check_.Start();
    is_checking_ = true;
  } catch (const HostError& error) {
    console_.Error(error.what());
  }
}

std::optional<bool> PolicyReload::Look() {
  const std::optional<bool> usable = check_.Result();
  if (!usable || !std::exchange(is_checking_, false)) return std::nullopt;
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
