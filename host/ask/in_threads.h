// SPDX-License-Identifier: Apache-2.0
// Work that several threads share.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

#include "host/store/read_limit.h"

namespace flow::host {

// InThreads runs work(number) in so many threads, of which this one is the first, and under its
// limit.
template <class Work>
void InThreads(std::size_t count, Work&& work) {
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < count; ++i) {
    threads.emplace_back([&work, i, limit = ReadLimit::Current()] {
      const ReadLimitScope scope(limit);
      work(i);
    });
  }
  work(std::size_t{0});
  for (std::thread& thread : threads) thread.join();
}

}  // namespace flow::host
