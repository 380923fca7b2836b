// SPDX-License-Identifier: Apache-2.0
#include "host/engine/flow_totals.h"

#include <algorithm>
#include <cstring>

namespace flow::host {
namespace {

// What is not known is zero. Parts of a flow come together in any order: of several numbers that
// were told the largest counts.
void TakeNumber(std::uint32_t part, std::uint32_t* into) { *into = std::max(*into, part); }
void TakeTextNumber(std::uint32_t part, std::uint32_t* into) {
  if (part != 0) *into = part;
}

}  // namespace

// Meters of sFlow tell the directions apart in the counters alone.
void FlowSums::Add(const FlowTotals& flow) {
  const auto sum = [](std::uint64_t a, std::uint64_t b, std::uint64_t otherwise) {
    return a + b != 0 ? a + b : otherwise;
  };
  ++flows;
  bytes += sum(flow.meters[0], flow.meters[1], flow.bytes[0] + flow.bytes[1]);
  packets += sum(flow.meters[2], flow.meters[3], flow.packets[0] + flow.packets[1]);
}

void FlowSums::Add(const FlowSums& other) {
  flows += other.flows;
  bytes += other.bytes;
  packets += other.packets;
}

void MergeFlow(const FlowTotals& part, FlowTotals* into) {
  FlowTimes times{into->first_ms, into->last_ms, into->updates != 0, into->has_times != 0};
  times.Add({part.first_ms, part.last_ms, part.updates != 0, part.has_times != 0});
  into->first_ms = times.first_ms;
  into->last_ms = times.last_ms;
  into->has_times = times.are_told ? 1 : 0;
  for (int i = 0; i < 4; ++i) into->meters[i] += part.meters[i];
  for (int i = 0; i < 2; ++i) {
    into->bytes[i] += part.bytes[i];
    into->packets[i] += part.packets[i];
  }
  into->duration_ms = std::max(into->duration_ms, part.duration_ms);
  into->closes += part.closes;
  into->updates += part.updates;
  if (part.tag != 0) into->tag = part.tag;
  if (part.text != 0) into->text = part.text;
  into->records += part.records;
  MergeRecordWords(part, into);
}

void MergeRecordWords(const FlowTotals& part, FlowTotals* into) {
  for (int i = 0; i < 2; ++i) {
    TakeNumber(part.as_numbers[i], &into->as_numbers[i]);
    TakeNumber(part.next_hops[i], &into->next_hops[i]);
    if (std::memcmp(part.macs[i], into->macs[i], sizeof(part.macs[i])) > 0) {
      std::memcpy(into->macs[i], part.macs[i], sizeof(part.macs[i]));
    }
  }
  TakeTextNumber(part.vrf, &into->vrf);
  TakeTextNumber(part.app, &into->app);
  TakeTextNumber(part.user, &into->user);
}

}  // namespace flow::host
