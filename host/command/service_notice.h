// SPDX-License-Identifier: Apache-2.0
// What a service manager is told of a collector: sd_notify(3), by its datagrams.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace flow::host {

class ServiceNotice {
 public:
  using Clock = std::chrono::steady_clock;

  // Takes the manager's socket out of the environment: other processes of ours have none. Without
  // one, nothing is told.
  ServiceNotice();

  // Ready says that it listens, Stopping that it ends.
  void Ready() const { Send("READY=1"); }
  void Stopping() const { Send("STOPPING=1"); }

  // Alive says that the one who calls does not hang, as often as the manager wants it.
  void Alive(Clock::time_point now);

 private:
  void Send(std::string_view text) const;

  std::string socket_;        // empty for none
  Clock::duration period_{};  // between two signs of life; 0 for none
  Clock::time_point next_alive_;
};

}  // namespace flow::host
