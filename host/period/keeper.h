// SPDX-License-Identifier: Apache-2.0
// Who keeps what was counted: a store, a server. It takes all of it and writes in a thread of its
// own, so that whoever counts waits for nothing.
#pragma once

#include <memory>
#include <vector>

#include "host/base/writer.h"
#include "host/engine/flow_batch.h"
#include "host/period/reporter.h"

namespace flow::host {

class Keeper {
 public:
  Keeper() = default;
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;
  virtual ~Keeper() = default;

  // TakeFlows takes flows that were counted at a time or before it, in the tick that is to come,
  // and Take all else that was counted in it.
  virtual void TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) = 0;
  virtual void Take(const Tick& tick, const std::vector<Harvest>& harvests) = 0;

  // End writes what there is and closes; where whoever counts waits, it is done then. FinishBy
  // waits for it, false when it takes longer than until the deadline.
  virtual void End() = 0;
  [[nodiscard]] virtual bool FinishBy(Writer::Clock::time_point deadline) = 0;

  [[nodiscard]] virtual bool Succeeded() const = 0;

  // For messages.
  [[nodiscard]] virtual const char* name() const = 0;
};

}  // namespace flow::host
