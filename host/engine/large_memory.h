// Zeroed memory for tables, in huge pages where it is large: a table of hundreds of megabytes in
// small pages costs a second miss in memory per access.
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

}  // namespace flow::host
