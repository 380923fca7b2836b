// Identifiers as texts.
#pragma once

#include <string>

#include "plugin/guid.h"

namespace flow::host {

// GuidText is the registry form without braces.
std::string GuidText(const GUID& guid);

}  // namespace flow::host
