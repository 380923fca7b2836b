// SPDX-License-Identifier: Apache-2.0
// Flows as rows of blocks.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/engine/flow_batch.h"
#include "host/engine/text_map.h"
#include "host/intake/stand_ins.h"
#include "host/scale/block.h"
#include "host/store/flow_file.h"

namespace flow::host {

// Who sends.
struct Sending {
  std::string collector;
  std::uint64_t run = 0;  // of a collector: when it began, in microseconds since 1970
};

class FlowBlocks {
 public:
  // Where blocks go; they get their numbers there before their first row is written.
  using NextNumber = std::function<std::uint32_t()>;
  using Take = std::function<void(Block block)>;

  // All outlive it.
  FlowBlocks(const Sending& sending, const StandIns& stand_ins, NextNumber next, Take take);

  // Add takes flows of a minute. Blocks go on as they are full; Flush has what is left go.
  void Add(std::int64_t bucket, const FlowBatch& batch);
  void Flush();

 private:
  void Begin(std::int64_t bucket);
  void Put(std::string_view key, const FlowTotals& flow);
  std::string_view ExporterBytes(std::string_view key);
  [[nodiscard]] std::string_view TextOf(std::uint32_t number) const;

  const Sending& sending_;
  const StandIns& stand_ins_;
  NextNumber next_;
  Take take_;
  Block block_;
  std::string begin_;  // what its rows have in front
  NotKept sums_;
  TextMap<std::string> exporters_;  // 16 bytes each, by key
  std::vector<std::string> texts_;  // of the batch at hand, fit to be read
};

}  // namespace flow::host
