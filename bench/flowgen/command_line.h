// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "bench/flowgen/options.h"

namespace flow::gen {

// ParseCommandLine answers nothing when the program is to end with *status: help was shown, or what
// is wrong was said.
std::optional<Options> ParseCommandLine(int argc, const char* const* argv, int* status);

}  // namespace flow::gen
