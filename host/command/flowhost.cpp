// SPDX-License-Identifier: Apache-2.0
#include "host/command/flowhost.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>

#include "host/base/error.h"
#include "host/command/ask_store.h"
#include "host/command/check_config_command.h"
#include "host/command/clickhouse_schema_command.h"
#include "host/command/command_line.h"
#include "host/command/info_command.h"
#include "host/command/listen_command.h"
#include "host/command/replay_command.h"
#include "host/command/report_command.h"
#include "host/command/serve_command.h"
#include "host/command/store_command.h"

namespace flow::host {
namespace {

int Run(const ReplayOptions& options) { return RunReplay(options); }
int Run(const ListenOptions& options) { return RunListen(options); }
int Run(const InfoOptions& options) { return RunInfo(options); }
int Run(const CheckConfigOptions& options) { return RunCheckConfig(options); }
int Run(const StoreCommandOptions& options) { return RunStore(options); }
int Run(const ClickHouseSchemaOptions& options) { return RunClickHouseSchema(options); }
int Run(const ServeOptions& options) { return RunServe(options); }
int Run(const PageReportOptions& options) { return RunPageReport(options); }

int Run(const AskCommand& command) {
  const Answered answered = AskStore(command);
  PrintAnswer(answered.answer, answered.view, stdout);
  return kExitOk;
}

int Tell(const std::exception& error, int status) {
  std::fflush(stdout);
  fmt::print(stderr, "flowhost: {}\n", error.what());
  return status;
}

}  // namespace

int RunFlowhost(int argc, const char* const* argv) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is trouble with an output
  try {
    int status = kExitOk;
    const std::optional<Command> command = ParseCommandLine(argc, argv, &status);
    if (!command) return status;
    return std::visit([](const auto& options) { return Run(options); }, *command);
  } catch (const UsageError& error) {
    return Tell(error, kExitUsage);
  } catch (const std::exception& error) {
    return Tell(error, kExitTrouble);
  }
}

}  // namespace flow::host
