// SPDX-License-Identifier: Apache-2.0
// What is known of a flow beyond the four records of metering/flow_record.h, whose fields are too
// narrow for it.
#pragma once

#include <cstdint>

#include "flowhandlers/host_interfaces.h"

namespace flow {

struct RecordAddenda {
  // As exported, and the rate by which to multiply.
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  std::uint32_t sampling_rate = 1;

  // First and last time, where the record has them as such and ExactTimes is on.
  bool has_times = false;
  TimePair start = {};
  TimePair end = {};
};

}  // namespace flow
