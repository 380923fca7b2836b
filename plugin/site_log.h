// SPDX-License-Identifier: Apache-2.0
// The component's log: messages go to the host's log through the site, and nowhere while there is
// no site.
#pragma once

#include <string>

#include "flowhandlers/host_interfaces.h"

namespace flow {

inline void Log(IOmbrelContainer* site, int level, const char* text) {
  if (site != nullptr) site->Log(level, text);
}
inline void Log(IOmbrelContainer* site, int level, const std::string& text) {
  Log(site, level, text.c_str());
}

}  // namespace flow
