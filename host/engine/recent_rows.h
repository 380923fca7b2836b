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

  struct Row;

  // Find gives the row of a key; null where it is not known, whether or not there is one. Put makes
  // it known, in place of another one.
  [[nodiscard, gnu::always_inline]] const Row* Find(const GUID& group, std::string_view key) const {
    if (key.size() > kLongestKey) return nullptr;
    const Name name(group, key);
    const Row& row = rows_[name.Guess() & mask_];
    return row.name == name && row.key_size == key.size() ? &row : nullptr;
  }
  void Put(const GUID& group, std::string_view key, std::uint64_t* values, std::size_t columns) {
    if (key.size() > kLongestKey) return;
    if (mask_ == 0) Make(kMost);
    const Name name(group, key);
    rows_[name.Guess() & mask_] = {name, values, static_cast<std::uint32_t>(columns),
                                   static_cast<std::uint32_t>(key.size())};
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

    Name() = default;
    Name(const GUID& guid, std::string_view key) : group(Load(&guid)) {
      const std::size_t size = key.size();
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
      return (differ[0] | differ[1]) == 0;
    }
  };

 public:
  // With its name, in one line of the caches.
  struct alignas(64) Row {
    Name name;
    std::uint64_t* values = nullptr;
    std::uint32_t columns = 0;
    std::uint32_t key_size = ~std::uint32_t{0};  // of no key
  };

 private:
  void Make(std::size_t count) {
    const HeapScope scope(nullptr);
    rows_ = std::vector<Row>(count);
    mask_ = count - 1;
  }

  std::vector<Row> rows_ = std::vector<Row>(1);
  std::size_t mask_ = 0;
};

}  // namespace flow::host
