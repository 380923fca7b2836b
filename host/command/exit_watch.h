// A plug-in that cannot read its policy prints why and ends the process: that is its contract. The
// watch gives the host a last word.
#pragma once

#include <functional>

namespace flow::host {

class ExitWatch {
 public:
  // on_exit runs when the process is ended by exit() while the watch stands.
  explicit ExitWatch(std::function<void()> on_exit);
  ~ExitWatch();
  ExitWatch(const ExitWatch&) = delete;
  ExitWatch& operator=(const ExitWatch&) = delete;
};

}  // namespace flow::host
