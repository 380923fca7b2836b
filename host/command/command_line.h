// SPDX-License-Identifier: Apache-2.0
// The command line: flowhost COMMAND OPTIONS.
#pragma once

#include <optional>
#include <variant>

#include "host/command/ask_command_line.h"
#include "host/command/options.h"
#include "host/command/web_options.h"

namespace flow::host {

using Command =
    std::variant<ReplayOptions, ListenOptions, InfoOptions, CheckConfigOptions, AskCommand,
                 PageReportOptions, StoreCommandOptions, ServeOptions, ClickHouseSchemaOptions>;

// ParseCommandLine gives the command. Help and errors are printed here; then there is no command
// and *status is the exit status.
std::optional<Command> ParseCommandLine(int argc, const char* const* argv, int* status);

}  // namespace flow::host
