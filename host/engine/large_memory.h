// SPDX-License-Identifier: Apache-2.0
// Memory for tables, zeroed or not, in huge pages where it is large: a table of hundreds of
// megabytes in small pages costs a second miss in memory per access.
//
// Large memory that is let go is kept for a while. Tables are made and let go minute by minute, and
// the kernel clears pages in the thread that counts; here whoever lets memory go has cleared it.
#pragma once

#include <cstddef>
#include <memory>

namespace flow::host {

enum class Cleared : bool { kNo, kYes };

struct FreeLargeMemory {
  std::size_t bytes = 0;
  Cleared cleared = Cleared::kYes;  // for the next one
  void operator()(std::byte* memory) const;
};
using LargeMemory = std::unique_ptr<std::byte[], FreeLargeMemory>;

// AllocateLarge gives memory, aligned for every type; all zero, or whatever it holds for who writes
// it before reading.
LargeMemory AllocateLarge(std::size_t bytes, Cleared cleared = Cleared::kYes);

// KeepSpareMemory sets how many bytes are kept at most; what is more goes back at once. Any thread
// may call it.
void KeepSpareMemory(std::size_t most_bytes);

}  // namespace flow::host
