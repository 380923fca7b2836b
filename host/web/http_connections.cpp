// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_connections.h"

#include <sys/socket.h>

#include <algorithm>

namespace flow::host {

void HttpConnections::Open(const void* connection, int socket) {
  const std::lock_guard lock(mutex_);
  connections_[connection] = {socket, true, Clock::now()};
}

void HttpConnections::Close(const void* connection) {
  const std::lock_guard lock(mutex_);
  connections_.erase(connection);
}

void HttpConnections::Answer(const void* connection) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  found->second.is_asking = false;
  found->second.since = Clock::now();
}

void HttpConnections::Await(const void* connection) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  found->second.is_asking = true;
  found->second.since = Clock::now();
}

bool HttpConnections::IsLate(const Connection& connection, Clock::time_point now,
                             bool is_crowded) const {
  constexpr std::chrono::milliseconds kInACrowd{500};
  if (!connection.is_asking) return now - connection.since > limits_.answer;
  return now - connection.since >
         (is_crowded ? std::min(kInACrowd, limits_.request) : limits_.request);
}

// Only shut down: the socket's number stays its own until the library has closed it.
void HttpConnections::Sweep(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  const bool is_crowded = connections_.size() > limits_.connections * 3 / 4;
  for (const auto& [key, connection] : connections_) {
    if (IsLate(connection, now, is_crowded)) shutdown(connection.socket, SHUT_RDWR);
  }
}

}  // namespace flow::host
