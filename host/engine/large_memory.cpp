// SPDX-License-Identifier: Apache-2.0
#include "host/engine/large_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

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

class Spare {
 public:
  // Null where there is none of that kind.
  std::byte* Take(std::size_t bytes, Cleared cleared) {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(kept_, [&](const Piece& piece) {
      return piece.bytes == bytes && piece.cleared == cleared;
    });
    if (found == kept_.end()) return nullptr;
    std::byte* const memory = found->memory;
    *found = kept_.back();
    kept_.pop_back();
    held_ -= bytes;
    return memory;
  }

  void Put(std::byte* memory, std::size_t bytes, Cleared cleared) {
    if (!HasRoom(bytes)) return static_cast<void>(munmap(memory, bytes));
    if (cleared == Cleared::kYes) std::memset(memory, 0, bytes);
    const std::lock_guard lock(mutex_);
    kept_.push_back({memory, bytes, cleared});
    held_ += bytes;
    Shrink();
  }

  void KeepAtMost(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    most_ = bytes;
    Shrink();
  }

 private:
  struct Piece {
    std::byte* memory;
    std::size_t bytes;
    Cleared cleared;
  };

  bool HasRoom(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    return held_ + bytes <= most_;
  }
  void Shrink() {
    for (; held_ > most_; kept_.pop_back()) {
      munmap(kept_.back().memory, kept_.back().bytes);
      held_ -= kept_.back().bytes;
    }
  }

  std::mutex mutex_;
  std::vector<Piece> kept_;
  std::size_t held_ = 0;
  std::size_t most_ = std::size_t{256} << 20;
};

// Stays to the end: tables of static storage may be let go after everything else.
Spare& TheSpare() {
  static Spare& spare = *new Spare;
  return spare;
}

}  // namespace

void FreeLargeMemory::operator()(std::byte* memory) const {
  if (IsHuge(bytes)) {
    TheSpare().Put(memory, bytes, cleared);
  } else {
    std::free(memory);
  }
}

LargeMemory AllocateLarge(std::size_t bytes, Cleared cleared) {
  void* memory = nullptr;
  if (IsHuge(bytes)) {
    memory = TheSpare().Take(bytes, cleared);
    if (memory == nullptr) memory = MapHuge(bytes);
  } else {
    memory = cleared == Cleared::kYes ? std::calloc(1, bytes) : std::malloc(bytes);
  }
  if (memory == nullptr) throw std::bad_alloc();
  return LargeMemory(static_cast<std::byte*>(memory), FreeLargeMemory{bytes, cleared});
}

void KeepSpareMemory(std::size_t most_bytes) { TheSpare().KeepAtMost(most_bytes); }

}  // namespace flow::host
