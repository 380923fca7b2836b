// SPDX-License-Identifier: Apache-2.0
// What a run does over and over, done once or not at all: the linker puts these in the place of
// what they are named for. A policy's text is parsed once, however many meters read it, since the
// parser has targets of its own; and libFuzzer is told of no comparison, as a grammar makes the
// inputs.
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "fuzz/host/promise.h"
#include "fuzz/host/world.h"
#include "util/xmlParser.h"

XMLNode ReadReally(const char* path,
                   const char* tag) asm("__real__ZN7XMLNode14openFileHelperEPKcS1_");
XMLNode ReadOnce(const char* path,
                 const char* tag) asm("__wrap__ZN7XMLNode14openFileHelperEPKcS1_");

XMLNode ReadOnce(const char* path, const char* tag) {
  static std::map<std::pair<std::string, int>, XMLNode> read;
  const int number = flow::fuzz::PolicyAt(path);
  flow::fuzz::Demand(number >= 0, "what is read is a policy that was written");
  const auto [known, is_new] = read.try_emplace({path, number});
  if (is_new) known->second = ReadReally(path, tag);
  return known->second;
}

#define FLOW_TELL_NOBODY(kind, size, type) \
  [[clang::no_sanitize("coverage")]] void __wrap___sanitizer_cov_trace_##kind##size(type, type) {}

extern "C" {
FLOW_TELL_NOBODY(cmp, 1, std::uint8_t)
FLOW_TELL_NOBODY(cmp, 2, std::uint16_t)
FLOW_TELL_NOBODY(cmp, 4, std::uint32_t)
FLOW_TELL_NOBODY(cmp, 8, std::uint64_t)
FLOW_TELL_NOBODY(const_cmp, 1, std::uint8_t)
FLOW_TELL_NOBODY(const_cmp, 2, std::uint16_t)
FLOW_TELL_NOBODY(const_cmp, 4, std::uint32_t)
FLOW_TELL_NOBODY(const_cmp, 8, std::uint64_t)
}
