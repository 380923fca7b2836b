// SPDX-License-Identifier: Apache-2.0
// Flows added up by any of their fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/flow_fields.h"
#include "host/ask/flow_scan.h"
#include "host/ask/flow_source.h"
#include "host/engine/key_table.h"

namespace flow::host {

// Sums stand in the table as they are.
inline constexpr std::size_t kFlowAmountWords = sizeof(FlowAmounts) / sizeof(std::uint64_t);

// Groups in several tables, by hash: small ones grow faster, and threads can share the work.
class FlowTables {
 public:
  FlowTables() {
    for (std::size_t i = 0; i < kTables; ++i) tables_.emplace_back(kFlowAmountWords);
  }

  KeyTable& Of(std::uint32_t hash) { return tables_[hash >> kShift]; }
  [[nodiscard]] std::vector<KeyTable>& tables() { return tables_; }

  // Null for a group that is not there.
  [[nodiscard]] const FlowAmounts* Find(std::string_view key) const;
  [[nodiscard]] std::size_t size() const;
  // visit(key, sums)
  template <class Visit>
  void ForEach(Visit&& visit) const {
    for (const KeyTable& table : tables_) {
      table.ForEach(
          [&](std::string_view key, const std::uint64_t* values) { visit(key, Sums(values)); });
    }
  }

  static const FlowAmounts& Sums(const std::uint64_t* values) {
    return *reinterpret_cast<const FlowAmounts*>(values);
  }

 private:
  static constexpr int kShift = 26;
  static constexpr std::size_t kTables = std::size_t{1} << (32 - kShift);

  std::vector<KeyTable> tables_;
};

struct FlowGroups {
  FlowTables table;
  FlowAmounts total{};  // each flow once, also where fields of either end count it at both
  ScanResult scan;
};

// GroupFlows counts a flow for both ends of fields that mean either one, and once where both are
// the same. With `step` (seconds) the table has the steps of time since the span's start behind the
// fields.
FlowGroups GroupFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                      const std::vector<const FlowField*>& fields, std::int64_t step = 0);

// StepOf gives the step of a key that has nothing but it.
std::int64_t StepOf(std::string_view key);

}  // namespace flow::host
