// SPDX-License-Identifier: Apache-2.0
// The SQL by which a ClickHouse answers questions about flows. Its table of flows has both
// directions in a row; here they become the flows that a question sees, and the parts that a flow
// has in several minutes become one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/ask/flow_fields.h"
#include "host/ask/flow_source.h"
#include "host/ask/sql_values.h"

namespace flow::host {

// SqlLiteral is what stands for a value, so that nothing that anybody typed becomes SQL;
// WithValues puts them in the places.
std::string SqlLiteral(const SqlValue& value);
std::string WithValues(std::string_view sql, const SqlValues& values);

class FlowSql {
 public:
  // `table`: that of flows; is_spread where it is one of several servers.
  struct Table {
    std::string name;
    bool is_spread = false;
  };

  FlowSql(const Table& table, const FlowSelection& selection);

  // The fields as groups have them: each is the column g0, g1, ... of " GROUP BY " ..., and stands
  // behind SELECT in a form that is fit to be read, with a comma behind it.
  [[nodiscard]] std::string GroupsShown() const;
  [[nodiscard]] std::string GroupsNamed() const;
  // The order of keys.
  [[nodiscard]] std::string GroupsInOrder() const;
  // "(g0, g1)" and these keys as a list of such.
  [[nodiscard]] std::string GroupsTuple() const;
  [[nodiscard]] std::string KeyList(const std::vector<std::string>& keys) const;

  // The sum of "bytes", "packets" or "records"; once: of each flow once.
  [[nodiscard]] std::string Sum(std::string_view amount, bool once = false) const;

  // " FROM ... WHERE ..." with a row for each flow of a minute, and for each end where fields mean
  // either one. More conditions can follow behind " AND ".
  [[nodiscard]] std::string Rows() const;

  // " FROM (...) WHERE ..." with a row for each whole flow: w_first, w_last, w_bytes, w_packets,
  // w_records, and where its first part stands, w_bucket, w_sending, w_block, w_row, w_rev.
  [[nodiscard]] std::string WholeFlows() const;
  // Whether what is asked of whole flows leaves some out.
  [[nodiscard]] bool AsksOfWhole() const { return !whole_.empty(); }

 private:
  [[nodiscard]] std::string Seen(std::string_view name) const;
  [[nodiscard]] std::string Group(const FlowField& field) const;
  [[nodiscard]] std::string Ends() const;
  [[nodiscard]] std::string MuchAlone() const;
  [[nodiscard]] std::string JoinedParts() const;
  [[nodiscard]] std::string AllRows(bool with_ends) const;
  [[nodiscard]] std::string FarRows() const;

  Table table_;
  TimeSpan span_;
  const std::vector<const FlowField*>& fields_;
  bool has_directions_;
  bool has_either_;
  std::string forward_;  // the filter, as it is seen
  std::string reverse_;
  std::string whole_;      // what is asked of whole flows
  std::string all_parts_;  // what that means for all parts between two ends
};

}  // namespace flow::host
