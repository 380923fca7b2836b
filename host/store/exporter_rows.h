// SPDX-License-Identifier: Apache-2.0
// Exporters' health and losses as rows: written for minutes, and added up for hours and days.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "host/intake/exporter_table.h"
#include "host/period/period.h"
#include "host/store/database.h"
#include "host/store/schema.h"

namespace flow::host {

// An exporter by its real address, and the sampling rate that it has told, 0 for none.
struct ExporterHealth {
  ExporterTable::Row row;
  std::uint64_t sampling_rate = 0;
};

class ExporterRows {
 public:
  explicit ExporterRows(Database* database);

  // Write adds what was counted to what the minute has.
  void Write(std::int64_t minute, const std::vector<ExporterHealth>& exporters,
             const Losses& losses);
  // AddUp makes the rows of an hour or day from those of the tier below.
  void AddUp(std::size_t tier, std::int64_t bucket);
  void DropBefore(const Tier& tier, std::int64_t bucket);

 private:
  void WriteLosses(std::int64_t minute, const ExporterTable::Row& row);
  void WriteLoss(std::int64_t minute, const ExportSource& source, std::string_view place,
                 std::string_view reason, std::uint64_t count, std::string_view unit);
  void BindClock(Statement* statement, const ExporterTable::Row& row, int place);
  void BindSource(Statement* statement, const ExportSource& source, int place);

  Database& database_;
  Statement health_;
  Statement loss_;
  Statement exporter_;
};

}  // namespace flow::host
