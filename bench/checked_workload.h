// SPDX-License-Identifier: Apache-2.0
// A workload in its meter, with its result checked before anything is measured.
#pragma once

#include <string_view>

#include "bench/call_log.h"
#include "bench/meter_host.h"
#include "bench/workload.h"

namespace flow::bench {

class CheckedWorkload {
 public:
  // Attaches the meter under the policy and sends the templates. Then it sends the datagrams once
  // and compares what the host was told with what the traffic holds; a difference ends the program.
  CheckedWorkload(test::Component meter, std::string_view name, std::string_view policy);

  [[nodiscard]] const Workload& Traffic() const { return workload_; }

  // Count sends all datagrams; Floor makes the same host calls without the library.
  void Count(IOmbrelStatsEngine* engine) { host_.CountAll(engine, workload_.datagrams); }
  void Floor(IOmbrelStatsEngine* engine) { log_.Play(engine, host_.Site()); }

  [[nodiscard]] double CallsPerItem() const {
    return static_cast<double>(log_.Calls()) / static_cast<double>(workload_.items);
  }

 private:
  void Check();

  Workload workload_;
  MeterHost host_;
  CallLog log_;
};

}  // namespace flow::bench
