// SPDX-License-Identifier: Apache-2.0
// Reading the policies in another process: a plug-in that cannot read one ends the process that
// asked it to.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "host/command/options.h"

namespace flow::host {

// A helper starts this program's check-config, since its owner will give up starting programs. All
// that it can be asked for is this check; it ends with its owner.
class PolicyCheck {
 public:
  // Starts the helper; before any thread. HostError when there can be none.
  explicit PolicyCheck(const MeterOptions& options);
  ~PolicyCheck();
  PolicyCheck(const PolicyCheck&) = delete;
  PolicyCheck& operator=(const PolicyCheck&) = delete;

  // Start has the policies read by the same plug-in from the same directories; what is found goes
  // to standard error. HostError when the helper is gone.
  void Start();

  // To poll, for a result; -1 when there will be none.
  [[nodiscard]] int descriptor() const { return socket_; }
  // Whether the policies can be used; nothing while they are still read.
  std::optional<bool> Result();

 private:
  int socket_ = -1;
  pid_t helper_ = 0;
};

}  // namespace flow::host
