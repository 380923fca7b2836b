// SPDX-License-Identifier: Apache-2.0
// Counts what a program takes from the heap: operator new, malloc and its relatives, in the program
// itself and in the libraries that it uses.
#pragma once

#include <cstdint>

namespace flow::test {

// StartCounting sets the count to 0; StopCounting gives it.
void StartCounting();
std::uint64_t StopCounting();

}  // namespace flow::test
