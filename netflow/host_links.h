// SPDX-License-Identifier: Apache-2.0
// What the parts of the meter know of the host.
#pragma once

#include "flowhandlers/host_interfaces.h"

namespace flow {

struct HostLinks {
  IOmbrelContainer* const& site;         // the meter's own; null while it is not attached
  IOmbrelStatsEngine* engine = nullptr;  // of the last Count
};

}  // namespace flow
