// SPDX-License-Identifier: Apache-2.0
// A table in columns that fit their contents.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace flow::host {

class TextTable {
 public:
  enum class Align { kLeft, kRight };

  void AddColumn(std::string heading, Align align);
  // As many cells as columns.
  void AddRow(std::vector<std::string> cells);

  [[nodiscard]] bool empty() const { return rows_.empty(); }

  // Print writes headings and rows, indented by two blanks.
  void Print(std::FILE* out) const;

 private:
  struct Column {
    std::string heading;
    Align align;
    std::size_t width;
  };

  void PrintCells(std::FILE* out, const std::vector<std::string>& cells) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace flow::host
