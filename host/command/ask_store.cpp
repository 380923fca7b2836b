// SPDX-License-Identifier: Apache-2.0
#include "host/command/ask_store.h"

#include <variant>

#include "host/command/compare_command.h"
#include "host/command/exporters_command.h"
#include "host/command/flows_command.h"
#include "host/command/losses_command.h"
#include "host/command/series_command.h"
#include "host/command/top_command.h"

namespace flow::host {
namespace {

Answered Ask(const TopOptions& options) { return AnswerTop(options); }
Answered Ask(const FlowsOptions& options) { return AnswerFlows(options); }
Answered Ask(const SeriesOptions& options) { return AnswerSeries(options); }
Answered Ask(const LossesOptions& options) { return AnswerLosses(options); }
Answered Ask(const ExportersOptions& options) { return AnswerExporters(options); }
Answered Ask(const CompareOptions& options) { return AnswerCompare(options); }

}  // namespace

Answered AskStore(const AskCommand& command) {
  return std::visit([](const auto& options) { return Ask(options); }, command);
}

}  // namespace flow::host
