// SPDX-License-Identifier: Apache-2.0
// A stretch of time and all that was counted in it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "host/engine/stats_store.h"
#include "host/intake/exporter_table.h"
#include "host/intake/intake.h"
#include "host/period/kernel_drops.h"

namespace flow::host {

// Datagrams that were lost in front of the meters.
struct Losses {
  PortDrops kernel;         // sockets whose receive buffer was full
  std::uint64_t queue = 0;  // lanes whose queue was full

  [[nodiscard]] std::uint64_t Kernel() const;
  void Add(const Losses& other);
};

class Period {
 public:
  explicit Period(std::span<const GroupInfo> groups)
      : store_(std::make_unique<StatsStore>(groups)) {}

  void Add(const IntakeCounts& intake, const Losses& losses);
  void Add(Harvest harvest);
  void Add(const std::vector<Harvest>& harvests);
  // Adds flows that are in no harvest.
  void AddFlows(const FlowBatch& flows) { store_->AddFlows(flows); }
  void AddShownFlows(const FlowBatch& flows, bool have_ends) {
    store_->AddShownFlows(flows, have_ends);
  }
  void MoveShownFlows(FlowBatch flows, bool have_ends) {
    store_->MoveShownFlows(std::move(flows), have_ends);
  }
  // Adds what another period holds.
  void Add(const Period& other);
  // Prune lets the smallest keys go where there are more than a long run keeps.
  void Prune();

  // Clear forgets the keys of a group, ClearExporters what exporters sent.
  void Clear(const GUID& group) { store_->Clear(group); }
  void ClearExporters() { exporters_ = {}; }

  [[nodiscard]] const IntakeCounts& intake() const { return intake_; }
  [[nodiscard]] const Losses& losses() const { return losses_; }
  [[nodiscard]] const StatsStore& store() const { return *store_; }
  [[nodiscard]] const ExporterTable& exporters() const { return exporters_; }

  Timestamp from = 0;
  Timestamp to = 0;

 private:
  IntakeCounts intake_;
  Losses losses_;
  std::unique_ptr<StatsStore> store_;
  ExporterTable exporters_;
  bool is_fresh_ = true;
};

}  // namespace flow::host
