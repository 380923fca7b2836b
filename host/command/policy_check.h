// SPDX-License-Identifier: Apache-2.0
// Reading the policies in another process: a plug-in that cannot read one ends the process that
// asked it to.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "host/border/site.h"

namespace flow::host {

class PolicyCheck {
 public:
  // Starts this program's check-config with the same plug-in and directories; it tells what it
  // finds on standard error. HostError when it cannot be started.
  PolicyCheck(const std::string& plugin, const SiteSettings& settings);
  ~PolicyCheck();
  PolicyCheck(const PolicyCheck&) = delete;
  PolicyCheck& operator=(const PolicyCheck&) = delete;

  // Whether the policies can be used; nothing while the process still runs (SIGCHLD tells its end).
  std::optional<bool> Result();

 private:
  pid_t process_ = 0;
};

}  // namespace flow::host
