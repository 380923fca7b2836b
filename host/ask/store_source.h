// SPDX-License-Identifier: Apache-2.0
// The database of counters of a store, as a source.
#pragma once

#include <string>

#include "host/ask/counter_source.h"
#include "host/ask/store_flow_source.h"
#include "host/store/database.h"

namespace flow::host {

class StoreSource final : public CounterSource {
 public:
  // HostError where there is no store or none that can be read.
  explicit StoreSource(const std::string& directory);

  std::unique_ptr<SourceRows> Ask(const std::string& sql, const SourceValues& values) override;
  std::string Table(const std::string& name, const TimeSpan& /*span*/) override { return name; }
  std::string GroupTable(const StoredGroup& group, const Tier& tier, const TimeSpan& span) override;
  bool HasColumn(const std::string& table, const std::string& column) override;
  FlowSource& Flows() override { return flows_; }

 private:
  StoreFlowSource flows_;
  Database database_;
};

}  // namespace flow::host
