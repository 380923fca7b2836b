// SPDX-License-Identifier: Apache-2.0
// The policies that inputs choose from, for meters of both protocols.
#pragma once

#include <cstdint>
#include <string>

namespace flow::fuzz {

struct Policy {
  std::string settings;
  const char* beside;  // of the settings, under the root
};

// PolicyOf gives one of a few policies, from the defaults to everything on.
inline constexpr int kPolicies = 4;
const Policy& PolicyOf(std::uint8_t number);

}  // namespace flow::fuzz
