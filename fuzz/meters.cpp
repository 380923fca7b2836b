// SPDX-License-Identifier: Apache-2.0
#include "fuzz/meters.h"

#include <cstdio>
#include <cstdlib>

#include "fuzz/policies.h"
#include "tests/support/host_trace.h"

#if defined(__SANITIZE_ADDRESS__)
#define FLOW_HAS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FLOW_HAS_ASAN 1
#endif
#endif
#ifdef FLOW_HAS_ASAN
// Of the sanitizer's allocator; not every compiler brings the header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace flow::fuzz {
namespace {

// A key needs several bytes of a record; a record of no bytes is handled once a set, of at least
// four bytes. No record leads to more than about eighty calls.
constexpr std::uint64_t kCallsPerByte = 100;
constexpr std::uint64_t kCallsPerDatagram = 200;

// The smallest template record has four bytes and is kept in a tree node of its own.
constexpr std::size_t kBytesKeptPerByte = 64;
constexpr std::size_t kBytesKeptPerDatagram = 4096;

std::size_t MemoryInUse() {
#ifdef FLOW_HAS_ASAN
  return __sanitizer_get_current_allocated_bytes();
#else
  return 0;
#endif
}

[[noreturn]] void Broken(const char* promise, std::uint64_t value, std::size_t size) {
  std::fprintf(stderr, "%s: %llu for a datagram of %zu bytes\n", promise,
               static_cast<unsigned long long>(value), size);
  std::abort();
}

}  // namespace

test::RecordingHost& ChoosePolicy(std::uint8_t number) {
  static test::RecordingHost host;
  static int chosen = -1;
  const int wanted = number % kPolicies;
  if (chosen < 0) {
    host.Recording(false).Home("10.0.0.0/8").WorkDirectory(std::nullopt);
  }
  if (wanted != chosen) {
    const Policy& policy = PolicyOf(number);
    host.Policy(policy.settings, policy.beside);
    host.AnyValue(wanted == 1);
    chosen = wanted;
  }
  return host;
}

StepWatch::StepWatch(const test::RecordingHost& host, std::size_t datagram_size)
    : host_(host), size_(datagram_size), calls_(host.Trace()->Calls()), memory_(MemoryInUse()) {}

StepWatch::~StepWatch() {
  const std::uint64_t calls = host_.Trace()->Calls() - calls_;
  if (calls > kCallsPerDatagram + kCallsPerByte * size_) Broken("calls", calls, size_);
  const std::size_t memory = MemoryInUse();
  if (memory > memory_ + kBytesKeptPerDatagram + kBytesKeptPerByte * size_) {
    Broken("bytes kept", memory - memory_, size_);
  }
}

}  // namespace flow::fuzz
