// SPDX-License-Identifier: Apache-2.0
// Keys of networks: AS numbers and prefixes. They follow the rules of flowhandlers/counter_keys.h.
#pragma once

#include <cstdint>

namespace flow {

// MakeAsKey writes an AS number as the host's stored counters name it: as a signed one, so that
// those above 2147483647 are negative.
char* MakeAsKey(std::uint32_t as_number, char* out) noexcept;

// A prefix in the usual notation, 10.1.0.0/20, all bits behind its length cleared.
char* MakePrefix4Key(std::uint32_t address, std::uint8_t prefix_length, char* out) noexcept;
char* MakePrefix6Key(const std::uint8_t* address, std::uint8_t prefix_length, char* out) noexcept;

}  // namespace flow
