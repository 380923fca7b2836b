// SPDX-License-Identifier: Apache-2.0
// The page as one file that needs nobody: style, scripts and answers stand in it.
#pragma once

#include <string>
#include <string_view>

namespace flow::host {

// ReportPage puts answers, which are JSON, into the page.
std::string ReportPage(std::string_view answers);

}  // namespace flow::host
