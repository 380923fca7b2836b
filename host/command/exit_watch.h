// SPDX-License-Identifier: Apache-2.0
// A plug-in that cannot read its policy prints why and ends the process: that is its contract. The
// watch gives the host a last word.
#pragma once

#include <functional>

namespace flow::host {

class ExitWatch {
 public:
  // on_exit runs when the process is ended by exit() while the watch stands; on_wait in each other
  // thread that ends the process meanwhile, and from then on waits.
  ExitWatch(std::function<void()> on_exit, std::function<void()> on_wait);
  ~ExitWatch();
  ExitWatch(const ExitWatch&) = delete;
  ExitWatch& operator=(const ExitWatch&) = delete;
};

}  // namespace flow::host
