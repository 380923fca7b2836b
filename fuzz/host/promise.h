// SPDX-License-Identifier: Apache-2.0
// What a target demands of the code beside that it does not fail.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace flow::fuzz {

// Demand ends the program, and says what broke, when a promise is not kept.
inline void Demand(bool is_kept, const char* promise) {
  if (is_kept) return;
  std::fprintf(stderr, "broke a promise: %s\n", promise);
  std::abort();
}

}  // namespace flow::fuzz
