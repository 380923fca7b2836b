// SPDX-License-Identifier: Apache-2.0
// One time beside another.
#pragma once

#include <cstddef>
#include <string>

#include "host/ask/answer.h"
#include "host/ask/key_names.h"
#include "host/ask/stored_counters.h"

namespace flow::host {

struct CompareQuestion {
  std::string group;
  std::string by = "bytes";
  std::size_t top = 10;
};

// AskCompare has the keys with the largest differences; of "totals" all in their order.
Answer AskCompare(StoredCounters* counters, const CompareQuestion& question, const TimeSpan& span,
                  const TimeSpan& against, const KeyNames& names, const Zone& zone);

// AskNewPeers has the hosts that a host exchanged traffic with in one time and not in the other,
// from flows.
Answer AskNewPeers(StoredCounters* counters, const IpAddress& host, std::size_t top,
                   const TimeSpan& span, const TimeSpan& against, const KeyNames& names,
                   const Zone& zone);

}  // namespace flow::host
