// SPDX-License-Identifier: Apache-2.0
// Which build a loaded plug-in is.
#pragma once

#include <string>

namespace flow::host {

// BuildOf gives version and revision by the note in the plug-in that dlopen has given a handle to;
// empty when it has none.
std::string BuildOf(void* handle);

}  // namespace flow::host
