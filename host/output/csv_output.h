// The report as CSV files, one per sheet.
#pragma once

#include <string>

#include "host/output/report.h"

namespace flow::host {

// WriteCsv writes SHEET.csv for every sheet into a directory, which it makes. HostError when it
// cannot.
void WriteCsv(const Report& report, const ReportOptions& options, const std::string& directory);

}  // namespace flow::host
