// SPDX-License-Identifier: Apache-2.0
// The words of filter texts, and what their values look like.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ask/expression.h"

namespace flow::host {

struct FilterWord {
  std::string_view word;
  FilterField field;
  bool has_ends;          // src and dst can stand in front of it
  bool has_order;         // less and more make sense of it
  std::string_view form;  // of its values, for who wrote it wrong
};

// FindFilterWord ignores case; null where there is no such word.
const FilterWord* FindFilterWord(std::string_view word);

// The words that a filter can begin with, for who wrote it wrong.
std::string FilterWordList();

// ParseFilterValue reads a value of a field, as in "443", "https", "1000-2000", "10.0.0.0/8",
// "1.5M".
std::optional<FilterValue> ParseFilterValue(FilterField field, std::string_view text);

// A word that is a condition by itself, as in "tcp" or "ipv6".
std::optional<Condition> ParseShortWord(std::string_view word);

}  // namespace flow::host
