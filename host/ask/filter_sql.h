// SPDX-License-Identifier: Apache-2.0
// Filters as SQL over a table of flows.
#pragma once

#include <string>
#include <string_view>

#include "host/ask/expression.h"
#include "host/ask/sql_values.h"

namespace flow::host {

struct FilterSql {
  std::string text;
  SqlValues values;

  // Adds to both.
  void Put(std::string_view more, SqlValue value);
};

// How a database has what conditions look at. Columns are named in braces, as ColumnsFor of
// flow_scan.h knows them, for flows can be seen both ways.
class FlowDialect {
 public:
  FlowDialect() = default;
  FlowDialect(const FlowDialect&) = delete;
  FlowDialect& operator=(const FlowDialect&) = delete;
  virtual ~FlowDialect() = default;

  // The columns or expressions of a field: its source's, and where it has two ends its
  // destination's. Numbers, and MAC addresses as blobs, are compared with what they have; null is
  // not known.
  struct Field {
    std::string_view source;
    std::string_view destination;
  };
  [[nodiscard]] virtual Field Of(FilterField field) const = 0;

  // The conditions that a field is one of these addresses, or this text.
  virtual void PutAddresses(FilterField field, std::string_view column, const AddressRange& range,
                            FilterSql* sql) const = 0;
  virtual void PutText(std::string_view column, const std::string& text, FilterSql* sql) const = 0;
};

// Of the files of a store.
const FlowDialect& StoreDialect();

// ToSql never makes an empty text, and what it makes is never NULL: a flow of which a field is not
// known does not have the value that is asked for.
FilterSql ToSql(const Expression& expression, const FlowDialect& dialect = StoreDialect());

}  // namespace flow::host
