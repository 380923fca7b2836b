// SPDX-License-Identifier: Apache-2.0
// Edited policies taken into use while meters work. A meter that reads a broken one ends the
// process, so another process reads it first.
#pragma once

#include <optional>

#include "host/command/meter_setup.h"
#include "host/command/policy_check.h"

namespace flow::host {

class PolicyReload {
 public:
  PolicyReload(MeterSetup& setup, Console& console) : setup_(setup), console_(console) {}

  // Ask begins a check.
  void Ask();

  // Look is for when a process has ended. Whether there is something new to use, where it was the
  // check; then the meters have been told.
  std::optional<bool> Look();

 private:
  void TellMeters();

  MeterSetup& setup_;
  Console& console_;
  std::optional<PolicyCheck> check_;
  bool again_ = false;
};

}  // namespace flow::host
