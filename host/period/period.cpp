// SPDX-License-Identifier: Apache-2.0
#include "host/period/period.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {

std::uint64_t Losses::Kernel() const {
  std::uint64_t sum = 0;
  for (const auto& [port, datagrams] : kernel) sum += datagrams;
  return sum;
}

void Losses::Add(const Losses& other) {
  for (const auto& [port, datagrams] : other.kernel) kernel[port] += datagrams;
  queue += other.queue;
}

void Period::Add(const IntakeCounts& intake, const Losses& losses) {
  intake_.Add(intake);
  losses_.Add(losses);
}

void Period::Add(Harvest harvest) {
  exporters_.Merge(harvest.exporters);
  // The first store is taken as it is: merging costs as much as counting. Flows may have come
  // before it.
  if (std::exchange(is_fresh_, false)) {
    FlowBatch flows = store_->TakeFlows();
    store_ = std::move(harvest.store);
    store_->MoveFlows(std::move(flows));
  } else {
    store_->Merge(std::move(*harvest.store));
  }
}

void Period::Add(const std::vector<Harvest>& harvests) {
  is_fresh_ = false;
  for (const Harvest& harvest : harvests) {
    exporters_.Merge(harvest.exporters);
    store_->Merge(*harvest.store);
  }
}

void Period::Prune() {
  store_->Prune();
  NoteLetGo(LetGo::kKeys, store_->PruneTo(Shares().period_keys));
}

void Period::Add(const Period& other) {
  is_fresh_ = false;
  from = from == 0 ? other.from : std::min(from, other.from);
  to = std::max(to, other.to);
  intake_.Add(other.intake_);
  losses_.Add(other.losses_);
  store_->Merge(*other.store_);
  exporters_.Merge(other.exporters_);
}

}  // namespace flow::host
