// SPDX-License-Identifier: Apache-2.0
#include "host/command/exporters_command.h"

#include "host/ask/exporters.h"
#include "host/command/ask_setup.h"

namespace flow::host {

Answered AnswerExporters(const ExportersOptions& options) {
  AskSetup setup(options.ask, kDaySeconds);
  return setup.Give(AskExporters(setup.counters(), setup.span(), setup.names(), setup.view().zone));
}

}  // namespace flow::host
