// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_source.h"

#include <algorithm>

#include "host/ask/flow_fields.h"
#include "host/store/schema.h"

namespace flow::host {

void AddMissing(std::int64_t hour, const TimeSpan& span, ScanResult* result) {
  const TimeSpan part{std::max(hour, span.from), std::min(hour + kHourSeconds, span.to)};
  auto& missing = result->missing;
  if (!missing.empty() && missing.back().to == part.from) {
    missing.back().to = part.to;
  } else {
    missing.push_back(part);
  }
}

std::int64_t RankOf(const FlowAmounts& sums, FlowOrder order) {
  switch (order) {
    case FlowOrder::kBytes:
      return static_cast<std::int64_t>(sums.bytes);
    case FlowOrder::kPackets:
      return static_cast<std::int64_t>(sums.packets);
    case FlowOrder::kFlows:
      return static_cast<std::int64_t>(sums.flows);
    case FlowOrder::kDuration:
      return static_cast<std::int64_t>(sums.last - sums.first);
    case FlowOrder::kFirst:
      return -static_cast<std::int64_t>(sums.first);
    case FlowOrder::kLast:
      return -static_cast<std::int64_t>(sums.last);
  }
  return 0;
}

const std::vector<const FlowField*>& ListedFields() {
  static const auto& fields =
      *new std::vector<const FlowField*>(ParseFields("proto,src,sport,dst,dport,exporter,in,out"));
  return fields;
}

}  // namespace flow::host
