// SPDX-License-Identifier: Apache-2.0
// A hash map by text that is searched with std::string_view.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>

#include <functional>
#include <string>
#include <string_view>

namespace flow::host {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return absl::Hash<std::string_view>{}(text);
  }
};

template <class Value>
using TextMap = absl::flat_hash_map<std::string, Value, TextHash, std::equal_to<>>;

}  // namespace flow::host
