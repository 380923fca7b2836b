// The signals that a running collector answers to, as a descriptor to poll.
#pragma once

#include <optional>

namespace flow::host {

class Signals {
 public:
  // Blocks SIGINT, SIGTERM, SIGHUP, SIGUSR1 and SIGCHLD in this thread and all that it starts, and
  // ignores SIGPIPE.
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_; }

  // Take gives the next signal that came.
  std::optional<int> Take();

  // LetInterrupt has a further SIGINT or SIGTERM end the process at once.
  static void LetInterrupt();

 private:
  int descriptor_;
};

}  // namespace flow::host
