#include "host/engine/flow_totals.h"

#include <algorithm>

namespace flow::host {
namespace {

void MergeTimes(const FlowTotals& part, FlowTotals* into) {
  const bool replaces = into->updates == 0 || part.has_times > into->has_times;
  const bool counts = part.updates != 0 && part.has_times == into->has_times;
  if (replaces) {
    into->first_ms = part.first_ms;
    into->last_ms = part.last_ms;
    into->has_times = part.has_times;
  } else if (counts) {
    into->first_ms = std::min(into->first_ms, part.first_ms);
    into->last_ms = std::max(into->last_ms, part.last_ms);
  }
}

}  // namespace

void MergeFlow(const FlowTotals& part, FlowTotals* into) {
  MergeTimes(part, into);
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
}

}  // namespace flow::host
