// SPDX-License-Identifier: Apache-2.0
// Rows of counters that were updated a short while ago. Most traffic is of few keys: an update of
// one of them needs no look for its group, no hash and no queue.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "flowhandlers/guid.h"
#include "host/base/heap_account.h"
#include "host/engine/key_bytes.h"

namespace flow::host {

class RecentRows {
 public:
  static constexpr std::size_t kLongestKey = 32;

  struct Row {
    std::uint64_t* values;
    std::uint32_t columns;
  };

  // Find gives the row of a key; null where it is not known, whether or not there is one. Put makes
  // it known, in place of another one.
  [[nodiscard]] const Row* Find(const GUID& group, std::string_view key) const {
    if (key.size() > kLongestKey) return nullptr;
    const Name name(group, key);
    const Known& known = known_[name.Guess() & mask_];
    return known.name == name ? &known.row : nullptr;
  }
  void Put(const GUID& group, std::string_view key, const Row& row) {
    if (key.size() > kLongestKey) return;
    if (mask_ == 0) Make(kMost);
    const Name name(group, key);
    known_[name.Guess() & mask_] = {name, row};
  }

  // Forget is called before rows move or go.
  void Forget() {
    if (mask_ != 0) Make(1);
  }

 private:
  static constexpr std::size_t kMost = 4096;  // what a cache holds beside all else

  using Words2 = std::uint64_t __attribute__((vector_size(16)));  // of any processor

  static Words2 Load(const void* from) {
    Words2 words;
    std::memcpy(&words, from, sizeof(words));
    return words;
  }

  // A group and a key's bytes in two parts, which overlap where it has less than 32.
  struct Name {
    Words2 group = {};
    Words2 first = {};
    Words2 last = {};
    std::uint64_t size = ~std::uint64_t{0};  // of no key

    Name() = default;
    Name(const GUID& guid, std::string_view key) : group(Load(&guid)), size(key.size()) {
      const char* const begin = key.data();
      const char* const end = begin + size;
      if (size > 16) {
        first = Load(begin);
        last = Load(end - 16);
      } else if (size >= 8) {
        first = Words2{internal::Load64(begin), internal::Load64(end - 8)};
      } else if (size >= 4) {
        first = Words2{internal::Load32(begin), internal::Load32(end - 4)};
      } else if (size > 0) {
        const auto byte = [](const char* at) {
          return std::uint64_t{static_cast<unsigned char>(*at)};
        };
        first = Words2{byte(begin) << 16 | byte(begin + size / 2) << 8 | byte(end - 1)};
      }
    }
    [[nodiscard]] std::size_t Guess() const {
      const Words2 mixed = first ^ last ^ group;
      return static_cast<std::size_t>((mixed[0] + std::rotl(mixed[1], 29)) * 0x9E3779B97F4A7C15 >>
                                      48);
    }
    bool operator==(const Name& other) const {
      const Words2 differ = (group ^ other.group) | (first ^ other.first) | (last ^ other.last);
      return (differ[0] | differ[1] | (size ^ other.size)) == 0;
    }
  };
  struct Known {
    Name name;
    Row row;
  };

  void Make(std::size_t count) {
    const HeapScope scope(nullptr);
    known_ = std::vector<Known>(count);
    mask_ = count - 1;
  }

  std::vector<Known> known_ = std::vector<Known>(1);
  std::size_t mask_ = 0;
};

}  // namespace flow::host
