// SPDX-License-Identifier: Apache-2.0
// What all objects do the same way that the host hands to the plug-in.
#pragma once

#include "flowhandlers/kit/host_object.h"

namespace flow::host {

using kit::HostObject;

}  // namespace flow::host
