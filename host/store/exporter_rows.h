// SPDX-License-Identifier: Apache-2.0
// Exporters' health and losses as rows: written for minutes, and added up for hours and days.
#pragma once

#include <absl/container/flat_hash_set.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
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

// What rows call an exporter and version: nothing for all those that are too many for rows of their
// own.
struct SourceNames {
  std::string exporter;
  std::uint16_t port = 0;
  std::string version;
};
SourceNames NamesOf(const ExportSource& source);

enum class HealthSum : std::uint8_t { kAdds, kLatest };  // how two values become one

struct HealthColumn {
  std::string_view name;
  HealthSum sum;
  std::uint64_t (*value)(const ExporterHealth& health);
};
// Those behind bucket, exporter, port, version and lost_unit.
std::span<const HealthColumn> HealthColumns();

struct ExporterLoss {
  SourceNames source;
  std::string_view place;
  std::string_view reason;
  std::uint64_t count;
  std::string_view unit;
};
// ForEachLoss visits what was lost, exporter by exporter, and then by sockets.
void ForEachLoss(const std::vector<ExporterHealth>& exporters, const Losses& losses,
                 const std::function<void(const ExporterLoss& loss)>& visit);

// A store's table of exporters has so many and no more, as strangers make them up. Others are
// counted as one without a name.
class ExporterRows {
 public:
  static constexpr std::size_t kMostExporters = std::size_t{1} << 17;
  static constexpr std::size_t kMostStrangers = kMostExporters / 8;  // that have sent no record

  explicit ExporterRows(Database* database);

  // Write adds what was counted to what the minute has.
  void Write(std::int64_t minute, const std::vector<ExporterHealth>& exporters,
             const Losses& losses);
  // AddUp makes the rows of an hour or day from those of the tier below.
  void AddUp(std::size_t tier, std::int64_t bucket);
  void DropBefore(const Tier& tier, std::int64_t bucket);
  // DropSilentSince lets those go that have not been heard of since; 0 for none.
  void DropSilentSince(std::int64_t time);

 private:
  std::vector<ExporterHealth> WithRoom(const std::vector<ExporterHealth>& exporters);
  void Know();
  void BindClock(Statement* statement, const ExporterTable::Row& row, int place);
  static void BindSource(Statement* statement, const SourceNames& source, int place);

  Database& database_;
  Statement health_;
  Statement loss_;
  Statement exporter_;
  absl::flat_hash_set<std::uint64_t> known_;  // hashes of the names that the table has
};

}  // namespace flow::host
