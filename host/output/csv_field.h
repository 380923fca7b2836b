// SPDX-License-Identifier: Apache-2.0
// Texts in CSV.
#pragma once

#include <string>

namespace flow::host {

// The text in UTF-8, without control characters, and with a ' in front where a spreadsheet would
// take it for a formula. RFC 4180: a field with a separator, a quote or a line break stands in
// quotes, quotes are doubled.
std::string CsvField(const std::string& text);

}  // namespace flow::host
