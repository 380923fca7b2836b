// SPDX-License-Identifier: Apache-2.0
// The largest keys of a group of counters.
#pragma once

#include <cstddef>
#include <string>

#include "host/ask/answer.h"
#include "host/ask/key_names.h"
#include "host/ask/stored_counters.h"

namespace flow::host {

struct TopQuestion {
  std::string group;
  std::string by = "bytes";  // a column of the group
  std::size_t top = 10;
  bool wants_lines = false;  // a few steps, for who sees pictures
  std::int64_t step = 0;     // seconds; not 0: lines of such steps
};

// UsageError where there is no such group or column.
Answer AskTop(StoredCounters* counters, const TopQuestion& question, const TimeSpan& span,
              const KeyNames& names);

// ColumnOf gives the place of a column among a group's, by its name. UsageError names them all.
std::size_t ColumnOf(const StoredGroup& group, const std::string& name);

// Coverage puts into an answer what a cover says: span, source, gaps, losses.
void Coverage(StoredCounters* counters, const Cover& cover, Answer* answer);

}  // namespace flow::host
