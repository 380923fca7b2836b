// The report as an SQLite database, one table per sheet.
#pragma once

#include <cstdint>
#include <string>

#include "host/output/report.h"

namespace flow::host {

// WriteSqlite replaces the tables of the database, which it makes if need be; other tables stay.
// HostError when it cannot, and then nothing has changed.
// A time bucket in a database that holds many.
struct TimeBucket {
  std::int64_t start = 0;  // seconds since 1970
  int keep_days = 0;       // buckets that are older than this are deleted; 0 for never
};

// AppendSqlite adds a bucket: the same tables with the bucket's start in a first column more.
void AppendSqlite(const Report& report, const ReportOptions& options, const std::string& path,
                  const TimeBucket& bucket);

void WriteSqlite(const Report& report, const ReportOptions& options, const std::string& path);

}  // namespace flow::host
