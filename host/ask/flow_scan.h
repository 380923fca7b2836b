// Reading flows: hour after hour, in several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/expression.h"
#include "host/ask/stored_flows.h"
#include "host/ask/times.h"

namespace flow::host {

// A row of a file of flows has both directions of a conversation. A question that tells source from
// destination sees it as two flows, each with what went its way; another one sees it as one, with
// what went either way.
bool HasDirections(const Expression& expression);

// What is asked of each file: the second of two passes, where there are directions, sees flows the
// other way round. A text that says "{src}" stands for the column at the source.
struct ScanQuestion {
  Expression filter;
  TimeSpan span;
  bool has_directions = false;
  // Columns, as in "{src}, {bytes}, first". Names in braces: those of both ends ({src}, {dst},
  // {sport}, {dport}, {in_if}, {out_if}, {src_as}, {dst_as}, {src_mac}, {dst_mac}), and {bytes},
  // {packets}, {records}.
  std::string select;
};

// Who takes rows; one for each thread.
class FlowTaker {
 public:
  FlowTaker() = default;
  FlowTaker(const FlowTaker&) = delete;
  FlowTaker& operator=(const FlowTaker&) = delete;
  virtual ~FlowTaker() = default;

  virtual void Take(const StoredFlows& file, const Statement& row, bool is_reverse) = 0;
};

struct ScanResult {
  std::vector<TimeSpan> missing;  // hours without a file
  StoredFlows::NotKept not_kept;
};

// ScanFlows hands every row to one of the takers, each in its own thread. HostError where a file
// cannot be read.
ScanResult ScanFlows(const std::string& directory, const ScanQuestion& question,
                     const std::vector<FlowTaker*>& takers);

// How many threads are worth it.
std::size_t ScanThreads();

// ScanColumns puts columns in place of the names in braces.
std::string ScanColumns(std::string_view select, bool has_directions, bool is_reverse);

}  // namespace flow::host
