// SPDX-License-Identifier: Apache-2.0
// The columns of exporters and of flows: one row of a table each, so that every output has the same
// ones under the same names.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "host/output/report.h"

namespace flow::host {

// Nothing where a value is not known.
using Cell = std::variant<std::monostate, std::uint64_t, std::int64_t, std::string>;

// How the terminal shows a value; files hold texts and plain numbers.
enum class ColumnKind : std::uint8_t {
  kText,
  kCount,
  kBytes,
  kAmount,    // a text that begins with a number
  kRate,      // the text N as 1:N
  kTime,      // milliseconds since 1970
  kDuration,  // milliseconds
  kOffset,    // milliseconds ahead
  kState,     // closed, where the number is not 0
};

template <class Row>
struct Column {
  std::string_view id;       // in files; "" where they do not hold it
  std::string_view part;     // the object within a JSON entry that holds it, under its id without
                             // "PART_" in front; "" for the entry
  std::string_view heading;  // on the terminal; "" where it is not shown
  ColumnKind kind;
  Cell (*value)(const Report& report, const Row& row);
  // Whether there is anything to say; null for always. The terminal leaves out a column that says
  // nothing, and a part of a JSON entry holds only what there is to say.
  bool (*applies)(const Report& report, const Row& row) = nullptr;

  [[nodiscard]] bool Applies(const Report& report, const Row& row) const {
    return applies == nullptr || applies(report, row);
  }
};

using ExporterColumn = Column<ExporterTable::Row>;
using FlowColumn = Column<FlowTotals>;

std::span<const ExporterColumn> ExporterColumns();
// Beside the key and the meters of the flow group.
std::span<const FlowColumn> FlowColumns();

}  // namespace flow::host
