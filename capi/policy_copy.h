// SPDX-License-Identifier: Apache-2.0
// A policy as it was when a collector was opened.
//
// The plug-in ends the process at a policy that it cannot read, then and whenever it notices an
// edit. It therefore gets a copy that has been read before and that nobody edits.
#pragma once

#include <string>

namespace flow::capi {

class PolicyCopy {
 public:
  PolicyCopy() = default;
  PolicyCopy(const PolicyCopy&) = delete;
  PolicyCopy& operator=(const PolicyCopy&) = delete;
  ~PolicyCopy();

  // Take copies the file at path. False, and why in *fault, when it is not there or no policy.
  bool Take(const std::string& path, std::string* fault);

  // Where the copy can be opened, as long as it lives.
  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_ = -1;
};

}  // namespace flow::capi
