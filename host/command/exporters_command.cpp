#include "host/command/exporters_command.h"

#include "host/ask/exporters.h"
#include "host/command/ask_setup.h"

namespace flow::host {

int RunExporters(const ExportersOptions& options) {
  AskSetup setup(options.ask, kDaySeconds);
  return setup.Show(AskExporters(setup.counters(), setup.span(), setup.names(), setup.view().zone));
}

}  // namespace flow::host
