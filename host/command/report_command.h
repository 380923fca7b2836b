// SPDX-License-Identifier: Apache-2.0
// flowhost report: the page of a span, as one file to send.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunPageReport(const PageReportOptions& options);

}  // namespace flow::host
