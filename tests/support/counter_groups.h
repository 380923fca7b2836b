// SPDX-License-Identifier: Apache-2.0
// What the host knows about the counter groups that the library writes into: names, forms of their
// keys and meters. Written down apart from the library's own table.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "flowhandlers/guid.h"

namespace flow::test {

struct CounterGroup {
  GUID guid;
  std::string_view name;
  // The forms that a key may have, separated by blanks: X stands for an upper-case hexadecimal
  // digit, # for decimal digits, at least one, anything else for itself. Empty: any text of at
  // most that many characters.
  std::string_view forms;
  unsigned int meters;  // bit i: meter i exists
  std::size_t longest = 255;
};

std::span<const CounterGroup> CounterGroups();

// FindCounterGroup gives null for an unknown group.
const CounterGroup* FindCounterGroup(const GUID& guid);

// KeyFits tells whether the key has one of the group's forms.
bool KeyFits(const CounterGroup& group, std::string_view key);

}  // namespace flow::test
