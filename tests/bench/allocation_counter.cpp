// SPDX-License-Identifier: Apache-2.0
#include "tests/bench/allocation_counter.h"

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define FLOW_HOOKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FLOW_HOOKS 1
#endif
#endif

#if defined(FLOW_HOOKS)
// Of the sanitizer's allocator; not every compiler brings the header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             std::size_t),
                                                         void (*free_hook)(const volatile void*));
#endif

namespace {

bool g_counting = false;
std::uint64_t g_count = 0;

void Count() noexcept { g_count += g_counting; }

}  // namespace

#if defined(FLOW_HOOKS)

// The sanitizer has an allocator of its own and tells of every block that it gives.
namespace {
[[maybe_unused]] const int g_hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { Count(); }, [](const volatile void*) {});
}  // namespace

#else

// Definitions in the program come before those of the C library, also for the shared libraries;
// operator new takes its memory from malloc.
extern "C" {

void* __libc_malloc(std::size_t size);                     // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* old, std::size_t size);         // NOLINT(bugprone-reserved-identifier)

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  Count();
  return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
  Count();
  return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* old, std::size_t size) {
  Count();
  return __libc_realloc(old, size);
}

}  // extern "C"

#endif

namespace flow::test {

void StartCounting() {
  g_count = 0;
  g_counting = true;
}

std::uint64_t StopCounting() {
  g_counting = false;
  return g_count;
}

}  // namespace flow::test
