// SPDX-License-Identifier: Apache-2.0
// A ClickHouse as a source that questions are put to: its views have the names and columns of a
// store's tables.
#pragma once

#include <string>

#include "host/ask/counter_source.h"
#include "host/scale/clickhouse_client.h"
#include "host/scale/clickhouse_flows.h"

namespace flow::host {

class ClickHouseSource final : public CounterSource {
 public:
  // UsageError where the options cannot be right, HostError where the server cannot be asked.
  explicit ClickHouseSource(const ClickHouseOptions& options);

  std::unique_ptr<SourceRows> Ask(const std::string& sql, const SourceValues& values) override;
  std::string Table(const std::string& name, const TimeSpan& span) override;
  std::string GroupTable(const StoredGroup& group, const Tier& tier, const TimeSpan& span) override;
  // What it calls meters are those that have columns.
  bool HasColumn(const std::string& /*table*/, const std::string& /*column*/) override {
    return true;
  }
  [[nodiscard]] bool AddsUp() const override { return true; }
  FlowSource& Flows() override { return flows_; }

 private:
  ClickHouseClient client_;
  FlowSql::Table flow_table_;
  ClickHouseFlows flows_{&client_, flow_table_};
};

}  // namespace flow::host
