// SPDX-License-Identifier: Apache-2.0
#include "host/command/check_config_command.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/printable.h"
#include "host/command/meter_setup.h"
#include "host/policy/default_policies.h"
#include "host/policy/policy_names.h"

namespace flow::host {
namespace {

namespace fs = std::filesystem;

// A directory for the defaults of policies that are missing, gone at the end.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = (fs::temp_directory_path() / "flowhost-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw HostError("no temporary directory can be made");
    path_ = name;
  }
  ~ScratchDirectory() {
    std::error_code error;
    fs::remove_all(path_, error);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

class ConfigCheck {
 public:
  explicit ConfigCheck(const CheckConfigOptions& options)
      : options_(options), directory_(options.config_directory), console_(kLogWarning) {
    if (options.write_defaults) WriteDefaults();
    if (!fs::is_directory(directory_)) {
      throw HostError(fmt::format("{} is no directory", directory_.string()));
    }
  }

  int Run() {
    bool warnings = false;
    for (const std::string_view name : PolicyFileNames()) warnings |= CheckNames(name);
    const int status = AskPlugin();
    if (status == kExitTrouble) {
      console_.Error(fmt::format("{}: a policy cannot be used", directory_.string()));
      return kExitTrouble;
    }
    if (status == kExitOk && !warnings && !options_.quiet) {
      fmt::print("{}: the policies are fine\n", Printable(directory_.string()));
    }
    return warnings ? kExitWarnings : status;
  }

 private:
  void WriteDefaults() {
    for (const std::string_view name : PolicyFileNames()) {
      const fs::path path = directory_ / name;
      std::error_code error;
      if (fs::exists(path, error)) continue;
      if (!WriteDefaultPolicy(path, &error)) {
        throw HostError(fmt::format("{} cannot be written: {}", path.string(), error.message()));
      }
      console_.Notice(fmt::format("wrote the default policy {}", path.string()));
    }
  }

  // Whether the file has elements without effect.
  bool CheckNames(std::string_view name) {
    const fs::path path = directory_ / name;
    if (!fs::exists(path)) {
      if (!options_.quiet) {
        console_.Notice(
            fmt::format("{} is not there; every setting is at its default", path.string()));
      }
      return false;
    }
    const std::string text = ReadFile(path.string()).value_or("");  // the plug-in says why
    const std::vector<PolicyRemark> remarks = CheckPolicyNames(name, text);
    for (const PolicyRemark& remark : remarks) {
      console_.Notice(fmt::format("{}, line {}: {}", path.string(), remark.line, remark.text));
    }
    return !remarks.empty();
  }

  // The plug-in ends a process whose policy it cannot read, so this is not ours.
  int AskPlugin() {
    std::fflush(nullptr);
    const ScratchDirectory scratch;
    const pid_t child = fork();
    if (child < 0) throw HostError("no process can be started");
    if (child == 0) _exit(Attach(scratch.path()));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kExitTrouble;
    return code == kExitOk || code == kExitWarnings ? code : kExitTrouble;
  }

  // In the child: every component reads its policy as at the start of a collector.
  int Attach(const fs::path& scratch) {
    try {
      MeterOptions meter;
      meter.plugin = options_.plugin;
      meter.config_directory = options_.config_directory;
      meter.data_directory = options_.data_directory;
      MeterSetup setup(meter, "", console_);
      setup.UseDefaultsIn(scratch);
      setup.Start(LaneMode::kInline);
      return console_.Warnings() > 0 ? kExitWarnings : kExitOk;
    } catch (const std::exception& error) {
      console_.Error(error.what());
      return kExitTrouble;
    }
  }

  const CheckConfigOptions& options_;
  fs::path directory_;
  Console console_;
};

}  // namespace

int RunCheckConfig(const CheckConfigOptions& options) { return ConfigCheck(options).Run(); }

}  // namespace flow::host
