// SPDX-License-Identifier: Apache-2.0
// What a running collector shows over HTTP: the page and the questions to its store, and metrics.
#pragma once

#include <memory>
#include <vector>

#include "host/command/web_options.h"
#include "host/intake/lanes.h"
#include "host/intake/stand_ins.h"
#include "host/period/reporter.h"

namespace flow::host {

class Console;
class Store;

class ListenWeb {
 public:
  // store: null for none. Nothing is shown where the options name no address, or one that cannot be
  // had, which is told.
  // UsageError. All but the options outlive it.
  ListenWeb(const WebOptions& options, const Store* store, Lanes& lanes, const StandIns& stand_ins,
            Console& console);
  ~ListenWeb();
  ListenWeb(const ListenWeb&) = delete;
  ListenWeb& operator=(const ListenWeb&) = delete;

  // What was counted until a tick, how long a report took, what came of a look at the policies.
  void Take(const Tick& tick, const std::vector<Harvest>& harvests);
  void NoteReport(double seconds);
  void NoteReload(bool succeeded);

 private:
  class Shown;
  std::unique_ptr<Shown> shown_;
};

}  // namespace flow::host
