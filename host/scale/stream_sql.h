// SPDX-License-Identifier: Apache-2.0
// What sequence numbers tell over all collectors, as SQL. `condition` is empty or begins with AND,
// and is about the raw table's rows; what lies in front of the first minute is not seen.
#pragma once

#include <string>
#include <string_view>

namespace flow::host {

// Each stream's numbers by minute and run of it, whichever collectors they came to.
std::string StreamNumbersSql(std::string_view condition);

// What of each stream came in a minute, what is lost since the one before, and what of that went
// between collectors: who had the minute before had nothing of this one.
std::string StreamLossesSql(std::string_view condition);

}  // namespace flow::host
