// SPDX-License-Identifier: Apache-2.0
// What the benchmarks that take their own time share.
#pragma once

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace flow::bench {

// The processor time of this thread in seconds, so that a busy machine disturbs caches alone.
inline double ProcessorTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

inline double Median(std::vector<double>* values) {
  const auto middle = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
  std::nth_element(values->begin(), middle, values->end());
  return *middle;
}

}  // namespace flow::bench
