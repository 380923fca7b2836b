// SPDX-License-Identifier: Apache-2.0
// How flowhost says that it cannot go on, and the exit statuses.
#pragma once

#include <stdexcept>

namespace flow::host {

inline constexpr int kExitOk = 0;
inline constexpr int kExitTrouble = 1;   // input, policy, plug-in or output
inline constexpr int kExitUsage = 2;     // wrong options
inline constexpr int kExitWarnings = 3;  // check-config: policies that can be used, with warnings

// What went wrong, in one line for the user.
class HostError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An option that cannot be right, found after the command line was read.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace flow::host
