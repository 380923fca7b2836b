// SPDX-License-Identifier: Apache-2.0
// How much there was, step by step.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/ask/answer.h"
#include "host/ask/expression.h"
#include "host/ask/stored_counters.h"

namespace flow::host {

struct SeriesQuestion {
  // Of a key of a group, else of flows, else of all traffic.
  std::string group;
  std::string key;
  std::optional<Expression> filter;
  std::string what;       // in the title
  std::int64_t step = 0;  // as StepsOf takes it
  bool by_packets = false;
};

Answer AskSeries(StoredCounters* counters, const SeriesQuestion& question, const TimeSpan& span);

}  // namespace flow::host
