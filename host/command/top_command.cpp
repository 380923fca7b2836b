// SPDX-License-Identifier: Apache-2.0
#include "host/command/top_command.h"

#include "host/ask/steps.h"
#include "host/ask/top.h"
#include "host/base/error.h"
#include "host/command/ask_setup.h"

namespace flow::host {

Answered AnswerTop(const TopOptions& options) {
  AskSetup setup(options.ask, kHourSeconds);
  TopQuestion question;
  question.group = options.group;
  question.by = options.ask.by;
  question.top = options.ask.top;
  question.step = ParseStep(options.step);
  if (question.step != 0 && options.ask.form != AnswerForm::kJson) {
    throw UsageError("--step: what each had step by step is shown with --json alone");
  }
  question.wants_lines = setup.view().is_terminal && options.ask.form == AnswerForm::kText;
  return setup.Give(AskTop(setup.counters(), question, setup.span(), setup.names()));
}

}  // namespace flow::host
