// SPDX-License-Identifier: Apache-2.0
// The summary on the terminal.
#pragma once

#include <cstdio>

#include "host/output/report.h"

namespace flow::host {

void PrintSummary(const Report& report, const ReportOptions& options, std::FILE* out);

}  // namespace flow::host
