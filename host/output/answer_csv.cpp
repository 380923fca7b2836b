// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <string>
#include <variant>

#include "host/output/answer_forms.h"
#include "host/output/csv_field.h"

namespace flow::host {
namespace {

std::string Cell(const AnswerValue& value) {
  if (const auto* const text = std::get_if<std::string>(&value)) return CsvField(*text);
  if (const auto* const integer = std::get_if<std::int64_t>(&value)) {
    return std::to_string(*integer);
  }
  const auto* const real = std::get_if<double>(&value);
  return real == nullptr ? "" : fmt::format("{:.9g}", *real);
}

bool IsDrawn(const AnswerColumn& column) {
  return column.kind == ValueKind::kLine || column.kind == ValueKind::kBar;
}

}  // namespace

// The row of the others is there, that of all traffic is not, so that the sum of a column is right.
void PrintCsv(const Answer& answer, std::FILE* out) {
  std::string line;
  const auto add = [&line](const std::string& cell) { line += (line.empty() ? "" : ",") + cell; };
  const auto end = [&] {
    fmt::print(out, "{}\n", line);
    line.clear();
  };
  for (const AnswerColumn& column : answer.columns) {
    if (!IsDrawn(column)) add(column.id);
  }
  add("at_least");
  end();
  const auto write = [&](const AnswerRow& row) {
    for (std::size_t i = 0; i < row.values.size(); ++i) {
      if (IsDrawn(answer.columns[i])) continue;
      // An empty first cell must not be taken for no cell.
      line += (i == 0 ? "" : ",") + Cell(row.values[i]);
    }
    line += row.is_least ? ",1" : ",0";
    end();
  };
  for (const AnswerRow& row : answer.rows) write(row);
  if (answer.others) write(*answer.others);
}

}  // namespace flow::host
