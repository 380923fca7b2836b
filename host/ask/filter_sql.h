// SPDX-License-Identifier: Apache-2.0
// Filters as SQL over the tables of a file of flows.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "host/ask/expression.h"

namespace flow::host {

// Values stand in it as places ("?"), so that nothing that anybody typed becomes SQL.
struct FilterSql {
  using Blob = std::vector<std::uint8_t>;

  using Values = std::vector<std::variant<std::int64_t, std::string, Blob>>;

  std::string text;
  Values values;  // in the order of places
};

// ToSql names columns in braces, as ColumnsFor of flow_scan.h knows them, for flows can be seen
// both ways. It never makes an empty text, and what it makes is never NULL: a flow of which a field
// is not known does not have the value that is asked for.
FilterSql ToSql(const Expression& expression);

}  // namespace flow::host
