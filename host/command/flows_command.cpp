#include "host/command/flows_command.h"

#include "host/ask/filter.h"
#include "host/ask/flows.h"
#include "host/command/ask_setup.h"

namespace flow::host {

int RunFlows(const FlowsOptions& options) {
  FlowsQuestion question;
  question.filter_text = options.filter;
  question.filter = ParseFilter(options.filter);
  question.fields = ParseFields(options.group_by);
  question.order = ParseFlowOrder(options.sort.empty() ? options.ask.by : options.sort);
  question.top = options.ask.top;
  AskSetup setup(options.ask, kHourSeconds);
  return setup.Show(AskFlows(setup.counters(), question, setup.span(), setup.names()));
}

}  // namespace flow::host
