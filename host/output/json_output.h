// Everything that was counted as one JSON document.
#pragma once

#include <string>

#include "host/output/report.h"

namespace flow::host {

// WriteJson writes the file; "-" is standard output. HostError when it cannot.
void WriteJson(const Report& report, const ReportOptions& options, const std::string& path);

}  // namespace flow::host
