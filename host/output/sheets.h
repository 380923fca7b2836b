// SPDX-License-Identifier: Apache-2.0
// The report as flat tables, for outputs that are made of such: CSV files and a database.
//
// There is a sheet of exporters, one per counter group, and one with the labels and properties of
// keys.
#pragma once

#include <span>
#include <string>

#include "host/output/columns.h"

namespace flow::host {

struct SheetColumn {
  std::string name;
  bool is_number = false;
};

// Takes sheets one after another, each row by row.
class SheetSink {
 public:
  virtual ~SheetSink() = default;
  virtual void Begin(const std::string& name, std::span<const SheetColumn> columns) = 0;
  virtual void Row(std::span<const Cell> cells) = 0;
  virtual void End() = 0;
};

void WriteSheets(const Report& report, const ReportOptions& options, SheetSink* sink);

}  // namespace flow::host
