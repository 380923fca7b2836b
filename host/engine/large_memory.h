// SPDX-License-Identifier: Apache-2.0
// Zeroed memory for tables, in huge pages where it is large: a table of hundreds of megabytes in
// small pages costs a second miss in memory per access.
//
// Large memory that is let go is kept for a while. Tables are made and let go minute by minute, and
// the kernel clears pages in the thread that counts; here whoever lets memory go has cleared it.
#pragma once

#include <cstddef>
#include <memory>

namespace flow::host {

struct FreeLargeMemory {
  std::size_t bytes = 0;
  void operator()(std::byte* memory) const;
};
using LargeMemory = std::unique_ptr<std::byte[], FreeLargeMemory>;

// AllocateLarge gives zeroed memory, aligned for every type.
LargeMemory AllocateLarge(std::size_t bytes);

// KeepSpareMemory sets how many bytes are kept at most; what is more goes back at once. Any thread
// may call it.
void KeepSpareMemory(std::size_t most_bytes);

}  // namespace flow::host
