// SPDX-License-Identifier: Apache-2.0
// Steps of time: how long they are, what of a store they are made up of, and lines over them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ask/answer.h"
#include "host/ask/stored_counters.h"
#include "host/ask/times.h"

namespace flow::host {

struct Steps {
  Cover cover;
  std::int64_t seconds = 0;  // of each
  std::size_t count = 0;

  // The number of the step that a time of the cover is in.
  [[nodiscard]] std::size_t At(std::int64_t time) const;
};

// ParseStep reads what was said of --step, "5m" or "1h"; nothing said is 0. UsageError.
std::int64_t ParseStep(const std::string& text);

// StepsOf plans steps of so many seconds (0: about forty of them), or longer ones where only longer
// buckets are kept, which a note then tells. UsageError where they are no whole minutes.
Steps StepsOf(StoredCounters* counters, const TimeSpan& asked, std::int64_t seconds,
              std::vector<std::string>* notes);

using Line = std::vector<double>;  // a value for each step

// TrafficLine has all traffic.
Line TrafficLine(StoredCounters* counters, const Steps& steps, bool by_packets);

// CounterLines has what each key of a group had of a column, and last what all keys had together.
std::vector<Line> CounterLines(StoredCounters* counters, const StoredGroup& group,
                               const Steps& steps, const std::string& column,
                               const std::vector<std::string>& keys);

// AmongKeys is the condition that a key is one of these, whose values it adds.
std::string AmongKeys(const std::vector<std::string>& keys, SourceValues* values);

// DescribeSteps tells an answer when its lines' steps are, and how many datagrams or records were
// lost in each of them.
void DescribeSteps(StoredCounters* counters, const Steps& steps, Answer* answer);

}  // namespace flow::host
