// SPDX-License-Identifier: Apache-2.0
// A counted flow as rows tell it: who is its source, and what went which way.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/engine/flow_totals.h"
#include "host/store/session.h"

namespace flow::host {

// What a flow carried, from each side.
struct FlowVolume {
  std::uint64_t bytes[2];
  std::uint64_t packets[2];

  // Meters of sFlow tell the directions apart in the counters alone.
  explicit FlowVolume(const FlowTotals& flow)
      : bytes{flow.meters[0], flow.meters[1]}, packets{flow.meters[2], flow.meters[3]} {
    if (!IsEmpty(0) || !IsEmpty(1)) return;
    std::copy_n(flow.bytes, 2, bytes);
    std::copy_n(flow.packets, 2, packets);
  }
  [[nodiscard]] bool IsEmpty(int way) const { return (bytes[way] | packets[way]) == 0; }
};

// What a row says of one side of a flow.
struct FlowSide {
  const SessionEnd& end;
  int way;  // its place in pairs
};

// SidesOf gives source and destination. Side A has the larger port, but for sFlow; who alone has
// sent is the source in any case.
inline std::pair<FlowSide, FlowSide> SidesOf(const Session& session, const FlowVolume& volume) {
  const bool one_way = volume.IsEmpty(0) || volume.IsEmpty(1);
  const bool from_b = one_way ? !volume.IsEmpty(1) : session.a.port < session.b.port;
  const FlowSide a{session.a, 0};
  const FlowSide b{session.b, 1};
  return from_b ? std::pair(b, a) : std::pair(a, b);
}

// FirstOf is when a flow began, in milliseconds since 1970. Without times of the exporter there may
// be a duration.
inline std::int64_t FirstOf(const FlowTotals& flow) {
  const bool has_duration = flow.has_times == 0 && flow.duration_ms != 0;
  return has_duration ? flow.last_ms - flow.duration_ms : flow.first_ms;
}

}  // namespace flow::host
