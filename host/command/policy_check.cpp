// SPDX-License-Identifier: Apache-2.0
#include "host/command/policy_check.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <vector>

#include "host/base/error.h"

namespace flow::host {

PolicyCheck::PolicyCheck(const std::string& plugin, const SiteSettings& settings) {
  std::vector<std::string> words{"flowhost",
                                 "check-config",
                                 "--quiet",
                                 "--plugin",
                                 plugin,
                                 "--data",
                                 settings.data_directory.string(),
                                 settings.config_directory.string()};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int failure =
      posix_spawn(&process_, "/proc/self/exe", nullptr, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (failure == 0) return;
  process_ = 0;
  throw HostError(fmt::format("the policies cannot be checked: {}", std::strerror(failure)));
}

PolicyCheck::~PolicyCheck() {
  if (process_ == 0) return;
  kill(process_, SIGKILL);  // it may hang where we do not
  waitpid(process_, nullptr, 0);
}

std::optional<bool> PolicyCheck::Result() {
  int status = 0;
  if (waitpid(process_, &status, WNOHANG) != process_) return std::nullopt;
  process_ = 0;
  return WIFEXITED(status) &&
         (WEXITSTATUS(status) == kExitOk || WEXITSTATUS(status) == kExitWarnings);
}

}  // namespace flow::host
