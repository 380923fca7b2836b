// SPDX-License-Identifier: Apache-2.0
#include "host/output/text_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace flow::host {

void TextTable::AddColumn(std::string heading, Align align) {
  const std::size_t width = heading.size();
  columns_.push_back({std::move(heading), align, width});
}

void TextTable::AddRow(std::vector<std::string> cells) {
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    columns_[i].width = std::max(columns_[i].width, cells[i].size());
  }
  rows_.push_back(std::move(cells));
}

void TextTable::Print(std::FILE* out) const {
  std::vector<std::string> headings;
  for (const Column& column : columns_) headings.push_back(column.heading);
  PrintCells(out, headings);
  for (const auto& row : rows_) PrintCells(out, row);
}

void TextTable::PrintCells(std::FILE* out, const std::vector<std::string>& cells) const {
  std::string line;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const Column& column = columns_[i];
    line += column.align == Align::kLeft ? fmt::format("  {:<{}}", cells[i], column.width)
                                         : fmt::format("  {:>{}}", cells[i], column.width);
  }
  line.erase(line.find_last_not_of(' ') + 1);
  fmt::print(out, "{}\n", line);
}

}  // namespace flow::host
