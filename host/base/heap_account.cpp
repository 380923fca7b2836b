// SPDX-License-Identifier: Apache-2.0
#include "host/base/heap_account.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace flow::host {

thread_local std::ptrdiff_t* HeapScope::at_hand_ = nullptr;

void KeepHeapSmall(std::size_t budget) {
  constexpr int kLarge = 128 << 10;
  mallopt(M_MMAP_THRESHOLD, kLarge);
  mallopt(M_TRIM_THRESHOLD, kLarge);
  constexpr std::size_t kHeapSpace = std::size_t{512} << 20;  // one heap for so much
  constexpr std::size_t kMostHeaps = 16;
  mallopt(M_ARENA_MAX,
          static_cast<int>(std::clamp(budget / kHeapSpace, std::size_t{1}, kMostHeaps)));
}

void ReturnHeap() { malloc_trim(0); }

}  // namespace flow::host

// The operators of the whole program, the plug-in's included.
namespace {

void* Allocate(std::size_t bytes) noexcept {
  void* const memory = std::malloc(std::max(bytes, std::size_t{1}));
  if (memory == nullptr) return nullptr;
  flow::host::HeapScope::Add(static_cast<std::ptrdiff_t>(malloc_usable_size(memory)));
  return memory;
}

void* AllocateOrThrow(std::size_t bytes) {
  void* const memory = Allocate(bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  flow::host::HeapScope::Add(-static_cast<std::ptrdiff_t>(malloc_usable_size(memory)));
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t bytes) { return AllocateOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return AllocateOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Free(memory); }
