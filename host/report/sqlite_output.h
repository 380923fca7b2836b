// The report as an SQLite database, one table per sheet.
#pragma once

#include <string>

#include "host/report/report.h"

namespace flow::host {

// WriteSqlite replaces the tables of the database, which it makes if need be; other tables stay.
// HostError when it cannot, and then nothing has changed.
void WriteSqlite(const Report& report, const ReportOptions& options, const std::string& path);

}  // namespace flow::host
