// SPDX-License-Identifier: Apache-2.0
// The flows of a ClickHouse, as a source: the server adds up and sorts, and what comes back is what
// is shown.
#pragma once

#include <string>
#include <vector>

#include "host/ask/flow_source.h"
#include "host/scale/clickhouse_client.h"
#include "host/scale/flow_sql.h"

namespace flow::host {

class ClickHouseFlows final : public FlowSource {
 public:
  // Both outlive it.
  ClickHouseFlows(ClickHouseClient* client, const FlowSql::Table& table)
      : client_(*client), table_(table) {}

  RankedGroups Rank(const FlowSelection& selection, FlowOrder order, std::size_t top,
                    const std::optional<TimeSpan>& other) override;
  FlowList List(const Expression& filter, const TimeSpan& span, FlowOrder order,
                std::size_t top) override;
  std::vector<std::vector<double>> Lines(const FlowSelection& selection, const Steps& steps,
                                         FlowOrder order,
                                         const std::vector<std::string>& keys) override;
  FlowSteps AddUpSteps(const Expression& filter, const Steps& steps) override;

 private:
  // Where the first part of a flow stands.
  struct Place {
    std::uint64_t bucket;
    std::uint64_t sending;
    std::uint64_t block;
    std::uint64_t row;
    bool is_reverse;
  };

  ScanResult ScanOf(const TimeSpan& span);
  void ReadFields(const std::vector<Place>& places, std::vector<ListedFlow>* flows);

  ClickHouseClient& client_;
  const FlowSql::Table& table_;
};

}  // namespace flow::host
