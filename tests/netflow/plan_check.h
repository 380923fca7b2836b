// SPDX-License-Identifier: Apache-2.0
// The two ways of reading a record give the same: the plans that are made of a template, and the
// walk from field to field, which many fields of variable length ask for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/datagram_builders.h"

namespace flow::test {

struct PlanCase {
  Fields fields;
  std::vector<Bytes> records;  // each as long as the fields together
  std::size_t cut = 0;         // bytes of one more record that the set breaks off
};

// CallsOfBoth meters the records under their template, and under the same with empty fields of
// variable length behind it. It gives the host's calls of the former and of the latter, with the
// reason for which each set was given up as last line.
struct BothWays {
  std::vector<std::string> plan;
  std::vector<std::string> walk;
};
BothWays CallsOfBoth(const PlanCase& test, std::string_view policy);

}  // namespace flow::test
