// SPDX-License-Identifier: Apache-2.0
// The options for messages to programs behind the collector.
#pragma once

#include <string>

#include "host/output/outputs.h"
#include "host/scale/kafka_options.h"

namespace CLI {
class App;
}

namespace flow::host {

struct MessageOptions {
  std::string flows;  // where lines of flows go; empty for nowhere
  KafkaOptions kafka;

  [[nodiscard]] bool Any() const { return !flows.empty() || !kafka.brokers.empty(); }
};

// Lines on standard output stand there alone.
void AddMessageOptions(CLI::App* app, MessageOptions* options, OutputOptions* output);

}  // namespace flow::host
