// SPDX-License-Identifier: Apache-2.0
#include "host/command/losses_command.h"

#include "host/ask/exporters.h"
#include "host/command/ask_setup.h"

namespace flow::host {

Answered AnswerLosses(const LossesOptions& options) {
  AskSetup setup(options.ask, kDaySeconds);
  return setup.Give(AskLosses(setup.counters(), setup.span(), setup.names()));
}

}  // namespace flow::host
