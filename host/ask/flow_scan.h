// SPDX-License-Identifier: Apache-2.0
// Reading flows: hour after hour, in several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/expression.h"
#include "host/ask/flow_source.h"
#include "host/ask/stored_flows.h"
#include "host/ask/times.h"

namespace flow::host {

// A row of a file of flows has both directions of a conversation. A question that tells source from
// destination sees it as two flows, each with what went its way; another one sees it as one, with
// what went either way.
bool HasDirections(const Expression& expression);

// Rows of files, by their numbers.
using RowsOfHours = std::map<std::int64_t, std::vector<std::uint32_t>>;

// What is asked of each file.
struct ScanQuestion {
  Expression filter;
  TimeSpan span;
  bool has_directions = false;
  // Names in braces stand for the columns at an end or of a direction: {src}, {dst}, {sport},
  // {dport}, {in_if}, {out_if}, {src_as}, {dst_as}, {src_mac}, {dst_mac}, {bytes}, {packets},
  // {records}. The first two columns are {bytes} and {packets}.
  std::vector<std::string> columns;
  const RowsOfHours* rows = nullptr;  // of these alone, if given
};

inline std::span<const std::uint8_t> BytesOf(sqlite3_value* value) {
  const auto* const bytes = static_cast<const std::uint8_t*>(sqlite3_value_blob(value));
  return {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

// A flow as the question sees it: with the columns that it names, by their places among the values
// that SQLite has of a row.
class FlowRow {
 public:
  FlowRow(const StoredFlows& file, sqlite3_value* const* values, std::span<const int> places,
          bool is_reverse)
      : file_(file), values_(values), places_(places), is_reverse_(is_reverse) {}

  [[nodiscard]] const StoredFlows& file() const { return file_; }
  [[nodiscard]] bool is_reverse() const { return is_reverse_; }
  [[nodiscard]] std::int64_t Integer(std::size_t column) const {
    return sqlite3_value_int64(Value(column));
  }
  [[nodiscard]] std::span<const std::uint8_t> Bytes(std::size_t column) const {
    return BytesOf(Value(column));
  }
  [[nodiscard]] bool IsNull(std::size_t column) const {
    return sqlite3_value_type(Value(column)) == SQLITE_NULL;
  }

 private:
  [[nodiscard]] sqlite3_value* Value(std::size_t column) const { return values_[places_[column]]; }

  const StoredFlows& file_;
  sqlite3_value* const* values_;
  std::span<const int> places_;
  bool is_reverse_;
};

// Who takes flows; one for each thread.
class FlowTaker {
 public:
  FlowTaker() = default;
  FlowTaker(const FlowTaker&) = delete;
  FlowTaker& operator=(const FlowTaker&) = delete;
  virtual ~FlowTaker() = default;

  virtual void Take(const FlowRow& row) = 0;
  // Whether it needs no more.
  [[nodiscard]] virtual bool IsDone() const { return false; }
};

// ScanRows hands every row that passes to one of the takers, each in its own thread. HostError
// where a file cannot be read.
ScanResult ScanRows(const std::string& directory, const ScanQuestion& question,
                    const std::vector<FlowTaker*>& takers);

// How many threads are worth it.
std::size_t ScanThreads();

// How a row is seen.
enum class FlowView : std::uint8_t { kBoth, kForward, kReverse };

// ColumnsFor puts columns in place of the names in braces.
std::string ColumnsFor(std::string_view text, FlowView view);

}  // namespace flow::host
