// SPDX-License-Identifier: Apache-2.0
// Sheets kept for a writer that comes later.
#pragma once

#include <string>
#include <vector>

#include "host/output/sheets.h"

namespace flow::host {

class SheetRecord final : public SheetSink {
 public:
  void Begin(const std::string& name, std::span<const SheetColumn> columns) override {
    sheets_.push_back({name, {columns.begin(), columns.end()}, {}});
  }
  void Row(std::span<const Cell> cells) override {
    sheets_.back().rows.emplace_back(cells.begin(), cells.end());
  }
  void End() override {}

  // Replay hands all of them on.
  void Replay(SheetSink* sink) const {
    for (const Sheet& sheet : sheets_) {
      sink->Begin(sheet.name, sheet.columns);
      for (const auto& row : sheet.rows) sink->Row(row);
      sink->End();
    }
  }

 private:
  struct Sheet {
    std::string name;
    std::vector<SheetColumn> columns;
    std::vector<std::vector<Cell>> rows;
  };

  std::vector<Sheet> sheets_;
};

}  // namespace flow::host
