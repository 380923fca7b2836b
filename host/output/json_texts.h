// SPDX-License-Identifier: Apache-2.0
// Texts in JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <utility>

#include "host/base/printable.h"

namespace flow::host {

// MakeUtf8 writes texts, and names of members, in UTF-8 and without control characters.
inline void MakeUtf8(nlohmann::ordered_json* value) {
  if (value->is_string()) {
    auto& text = value->get_ref<std::string&>();
    text = Utf8(text);
  } else if (value->is_array()) {
    for (auto& element : *value) MakeUtf8(&element);
  } else if (value->is_object()) {
    bool has_wrong_name = false;
    for (auto& [name, member] : value->items()) {
      MakeUtf8(&member);
      has_wrong_name |= Utf8(name) != name;
    }
    if (!has_wrong_name) return;
    auto made = nlohmann::ordered_json::object();
    for (auto& [name, member] : value->items()) made[Utf8(name)] = std::move(member);
    *value = std::move(made);
  }
}

}  // namespace flow::host
