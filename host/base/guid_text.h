// SPDX-License-Identifier: Apache-2.0
// Identifiers as texts.
#pragma once

#include <string>

#include "flowhandlers/guid.h"

namespace flow::host {

// GuidText is the registry form without braces.
std::string GuidText(const GUID& guid);

}  // namespace flow::host
