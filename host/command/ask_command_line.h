// SPDX-License-Identifier: Apache-2.0
// The commands that ask a store, on the command line.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <variant>

#include "host/command/ask_options.h"

namespace flow::host {

using AskCommand = std::variant<TopOptions, FlowsOptions, SeriesOptions, LossesOptions,
                                ExportersOptions, CompareOptions>;

class AskCommandLine {
 public:
  // The commands become part of the program's; both last as long as it.
  explicit AskCommandLine(CLI::App* app);

  // The one that was given, if any.
  [[nodiscard]] std::optional<AskCommand> Parsed() const;
  [[nodiscard]] std::optional<PageReportOptions> Report() const;

 private:
  TopOptions top_;
  FlowsOptions flows_;
  SeriesOptions series_;
  LossesOptions losses_;
  ExportersOptions exporters_;
  CompareOptions compare_;
  PageReportOptions report_;
  const CLI::App* app_;
};

}  // namespace flow::host
