// SPDX-License-Identifier: Apache-2.0
// Whether two hosts have counted the same.
#pragma once

#include <string>

#include "host/period/period.h"

namespace flow::fuzz {

// Difference says what the first difference is; empty where there is none.
std::string Difference(const host::Period& one, const host::Period& other);

}  // namespace flow::fuzz
