// SPDX-License-Identifier: Apache-2.0
// What tables' indexes take to grow: a part of a second for millions of keys, all of it at the next
// new key, whose fault it is not.
#pragma once

#include <chrono>

namespace flow::host {

// TimeOfGrowth is what it has taken in this thread so far.
std::chrono::steady_clock::duration TimeOfGrowth();

}  // namespace flow::host
