// SPDX-License-Identifier: Apache-2.0
// Where flows with much are asked for, nearly all rows are of others. A first look at ends and
// amounts alone finds the few that are worth more: rows between ends that had enough, all together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "host/ask/expression.h"
#include "host/ask/flow_scan.h"
#include "host/ask/times.h"

namespace flow::host {

// An amount that each flow has at least which a filter lets pass.
struct LeastAmount {
  bool is_packets = false;  // of bytes
  std::uint64_t least = 0;  // 0 where the filter asks for none
};
LeastAmount LeastOf(const Expression& filter);

// SiftRows gives the rows among which all parts of flows with an amount are; nothing where these
// are so many that it is no gain. The filter is asked of rows. HostError where a file cannot be
// read.
std::optional<RowsOfHours> SiftRows(const std::string& directory, const LeastAmount& amount,
                                    const Expression& filter, const TimeSpan& span,
                                    bool has_directions, std::size_t threads);

}  // namespace flow::host
