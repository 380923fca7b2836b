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
  // All outlive it.
  PolicyReload(PolicyCheck& check, MeterSetup& setup, Console& console)
      : check_(check), setup_(setup), console_(console) {}

  // Ask begins a check.
  void Ask();

  // Look is for when the check may have a result. Whether there is something new to use, where it
  // has; then the meters have been told.
  std::optional<bool> Look();

 private:
  void TellMeters();

  PolicyCheck& check_;
  MeterSetup& setup_;
  Console& console_;
  bool is_checking_ = false;
  bool again_ = false;
};

}  // namespace flow::host
