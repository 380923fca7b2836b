// SPDX-License-Identifier: Apache-2.0
// Where a server listens, and for whom.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/base/endpoint.h"

namespace flow::host {

struct HttpOptions {
  std::optional<Endpoint> listen;  // nothing for no server
  std::string users;               // file of names and hashes; empty for none
  bool is_open = false;            // anybody may ask, also from elsewhere
  std::vector<std::string> hosts;  // further names that the server is reached by
};

// What a client may take.
struct HttpLimits {
  std::size_t connections = 128;
  std::size_t request_bytes = std::size_t{16} << 10;  // line and headers
  std::chrono::milliseconds request{10'000};          // for all of a request to come
  std::chrono::milliseconds answer{60'000};           // from there until all of its answer is taken
  std::size_t workers = 4;                            // requests answered at a time
  std::size_t waiting = 32;                           // those that wait for it
};

}  // namespace flow::host
