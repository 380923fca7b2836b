// SPDX-License-Identifier: Apache-2.0
// Flows as messages: one for each direction in which something went, under the names that programs
// behind collectors know.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/printable.h"
#include "host/engine/flow_batch.h"
#include "host/engine/text_map.h"
#include "host/intake/stand_ins.h"
#include "host/scale/flow_blocks.h"
#include "host/scale/message.h"
#include "host/store/flow_sides.h"

namespace flow::host {

class FlowMessages {
 public:
  // The last two outlive it.
  FlowMessages(const Sending& sending, const StandIns& stand_ins, MessageSink& sink)
      : run_(sending.run),
        collector_(Utf8(sending.collector)),
        stand_ins_(stand_ins),
        sink_(sink) {}

  // Add puts the flows of a minute. The result is what could not be put.
  FlowSums Add(std::int64_t bucket, const FlowBatch& batch);

 private:
  bool Put(std::int64_t bucket, std::string_view key, const FlowTotals& flow);
  void Write(std::int64_t bucket, const Session& session, std::string_view exporter,
             const FlowTotals& flow, const FlowVolume& volume, const FlowSide& from,
             const FlowSide& to);
  // Empty for several.
  const std::string& ExporterOf(std::string_view key);
  void AddText(const MessageField& field, std::uint32_t number);

  std::uint64_t run_;
  std::string collector_;
  const StandIns& stand_ins_;
  MessageSink& sink_;
  std::uint64_t number_ = 0;  // of a message of the run, from 1
  TextMap<std::string> exporters_;
  std::vector<std::string> texts_;  // of the batch at hand, fit to be read
};

}  // namespace flow::host
