// SPDX-License-Identifier: Apache-2.0
#include "host/command/flows_command.h"

#include "host/ask/filter.h"
#include "host/ask/flows.h"
#include "host/ask/steps.h"
#include "host/base/error.h"
#include "host/command/ask_setup.h"

namespace flow::host {

Answered AnswerFlows(const FlowsOptions& options) {
  FlowsQuestion question;
  question.filter_text = options.filter;
  question.filter = ParseFilter(options.filter);
  question.fields = ParseFields(options.group_by);
  question.order = ParseFlowOrder(options.sort.empty() ? options.ask.by : options.sort);
  question.top = options.ask.top;
  question.step = ParseStep(options.step);
  if (question.step != 0 && options.ask.form != AnswerForm::kJson) {
    throw UsageError("--step: what each had step by step is shown with --json alone");
  }
  if (question.step != 0 && question.fields.empty()) {
    throw UsageError("--step: there are steps of sums alone, with --group-by");
  }
  AskSetup setup(options.ask, kHourSeconds);
  return setup.Give(AskFlows(setup.counters(), question, setup.span(), setup.names()));
}

}  // namespace flow::host
