// SPDX-License-Identifier: Apache-2.0
#include "host/engine/update_queue.h"

namespace flow::host {

void UpdateQueue::Flush() {
  // From the oldest on.
  for (std::size_t i = 0; i < kEntries; ++i) Apply(entries_[(next_ + i) % kEntries]);
}

void UpdateQueue::Apply(Entry& entry) {
  if (entry.table == nullptr) return;
  std::uint64_t* values = entry.table->UpdateLikely(entry.likely_row, entry.Key());
  if (values == nullptr) values = entry.table->FindOrAdd(entry.Key(), entry.hash);
  if (entry.flows != nullptr) {
    entry.flows->AddPart(values, entry.part);
  } else {
    // One in four is enough to meet those that come again, and lets them stay.
    if ((++applied_ & 3) == 0) entry.store->NoteRecent(*entry.group, entry.Key(), values);
    for (std::size_t i = 0; i < entry.count; ++i) {
      values[entry.increments[i].column] += entry.increments[i].value;
    }
  }
  entry.table = nullptr;
}

}  // namespace flow::host
