// SPDX-License-Identifier: Apache-2.0
// A store's file of the flows of an hour, for reading.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "host/ask/filter_sql.h"
#include "host/ask/flow_source.h"
#include "host/ask/times.h"
#include "host/store/database.h"

namespace flow::host {

class StoredFlows {
 public:
  // HostError where it cannot be read.
  StoredFlows(const std::string& directory, std::int64_t hour);

  [[nodiscard]] std::int64_t hour() const { return hour_; }

  // Exporters and texts by their numbers in this file; empty where there is none.
  [[nodiscard]] std::string_view Exporter(std::int64_t number) const;
  [[nodiscard]] std::string_view TextOf(std::int64_t number) const;

  // Rows gives the rows of a part of the hour that a filter lets pass; `select` is a list of
  // columns, in which `given` values have places.
  Statement Rows(const std::string& select, const SqlValues& given, const FilterSql& where,
                 const TimeSpan& span);

  // What there was no room to keep in a part of the hour.
  FlowsNotKept NotKeptIn(const TimeSpan& span);

  Database& database() { return database_; }

 private:
  using Texts = absl::flat_hash_map<std::int64_t, std::string>;

  Texts Read(const char* sql);

  std::int64_t hour_;
  Database database_;
  Texts exporters_;
  Texts texts_;
};

}  // namespace flow::host
