#include "host/engine/large_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace flow::host {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Maps more than is wanted and gives back what lies before the first huge page and behind the last
// byte.
std::byte* MapHuge(std::size_t bytes) {
  const std::size_t mapped = bytes + kHugePage;
  void* const map =
      mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) throw std::bad_alloc();
  auto* const start = static_cast<std::byte*>(map);
  const std::size_t misfit = reinterpret_cast<std::uintptr_t>(start) % kHugePage;
  const std::size_t before = misfit == 0 ? 0 : kHugePage - misfit;
  const std::size_t behind = mapped - before - bytes;
  if (before != 0) munmap(start, before);
  if (behind != 0) munmap(start + before + bytes, behind);
  madvise(start + before, bytes, MADV_HUGEPAGE);  // where there are none, small pages do
  return start + before;
}

bool IsHuge(std::size_t bytes) { return bytes >= kHugePage && bytes % kHugePage == 0; }

}  // namespace

void FreeLargeMemory::operator()(std::byte* memory) const {
  if (IsHuge(bytes)) {
    munmap(memory, bytes);
  } else {
    std::free(memory);
  }
}

LargeMemory AllocateLarge(std::size_t bytes) {
  void* const memory = IsHuge(bytes) ? MapHuge(bytes) : std::calloc(1, bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return LargeMemory(static_cast<std::byte*>(memory), FreeLargeMemory{bytes});
}

}  // namespace flow::host
