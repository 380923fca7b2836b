// SPDX-License-Identifier: Apache-2.0
// What the engine keeps of one flow.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "host/base/timestamp.h"

namespace flow::host {

// A flow as it is counted and reported; tables keep it in fewer bytes. All zero is a new flow. Tags
// and texts are numbers of interned texts, 0 for none.
struct FlowTotals {
  std::uint64_t meters[4];  // as the flow group describes them
  std::uint64_t bytes[2];   // UpdateFlowVolume: one way, the other way
  std::uint64_t packets[2];
  std::int64_t first_ms;  // earliest start and latest end, milliseconds since 1970
  std::int64_t last_ms;
  std::uint32_t duration_ms;  // the longest told
  std::uint32_t tag;
  std::uint32_t text;
  std::uint32_t closes;     // how often it was said to have ended
  std::uint32_t updates;    // volumes and counters of records
  std::uint32_t has_times;  // 1: the times are the exporter's; 0: when the engine was told of it
  // What was counted between the same two marks as the flow: of its two sides, or of the record.
  std::uint32_t as_numbers[2];
  std::uint32_t next_hops[2];  // IP and BGP
  std::uint32_t vrf;
  std::uint32_t app;
  std::uint32_t user;
  std::uint32_t records;
  std::uint8_t macs[2][6];
  std::uint32_t unused;
};
static_assert(std::is_trivially_copyable_v<FlowTotals>);

// Texts are numbers of a store, and of several the last one counts.
inline bool HasTexts(const FlowTotals& flow) {
  return (flow.tag | flow.text | flow.vrf | flow.app | flow.user) != 0;
}

// What flows carried together.
struct FlowSums {
  std::uint64_t flows = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;

  void Add(const FlowTotals& flow);
  void Add(const FlowSums& other);
};

// The times of a flow; Add takes those of another part of it.
struct FlowTimes {
  std::int64_t first_ms;
  std::int64_t last_ms;
  bool has_updates;
  bool are_told;  // by the exporter

  void Add(const FlowTimes& part) {
    if (!part.has_updates && !part.are_told) return;
    if (!has_updates || part.are_told > are_told) {
      first_ms = part.first_ms;
      last_ms = part.last_ms;
      are_told = part.are_told;
    } else if (part.has_updates && part.are_told == are_told) {
      first_ms = std::min(first_ms, part.first_ms);
      last_ms = std::max(last_ms, part.last_ms);
    }
  }
};

// MergeFlow adds another part of the same flow; its tag and text count as told later.
void MergeFlow(const FlowTotals& part, FlowTotals* into);

// MergeRecordWords adds what records said beside their flow, where they said anything.
void MergeRecordWords(const FlowTotals& part, FlowTotals* into);

}  // namespace flow::host
