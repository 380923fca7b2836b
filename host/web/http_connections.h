// SPDX-License-Identifier: Apache-2.0
// Connections and the time that each of them has. A read time-out alone is renewed with every byte
// that drips in: here a request has to be whole, and an answer taken, by a deadline.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <unordered_map>

#include "host/web/http_options.h"

namespace flow::host {

class HttpConnections {
 public:
  using Clock = std::chrono::steady_clock;

  explicit HttpConnections(const HttpLimits& limits) : limits_(limits) {}

  // A connection is known by its address in the library. Any thread.
  void Open(const void* connection, int socket);
  void Close(const void* connection);
  // A request is whole; its answer is taken.
  void Answer(const void* connection);
  void Await(const void* connection);

  // Sweep ends what is late, and, when most places are taken, who has been at a request for long
  // enough: a crowd that says nothing keeps nobody out.
  void Sweep(Clock::time_point now);

 private:
  struct Connection {
    int socket;
    bool is_asking;
    Clock::time_point since;
  };
  [[nodiscard]] bool IsLate(const Connection& connection, Clock::time_point now,
                            bool is_crowded) const;

  HttpLimits limits_;
  std::mutex mutex_;
  std::unordered_map<const void*, Connection> connections_;
};

}  // namespace flow::host
