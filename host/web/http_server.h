// SPDX-License-Identifier: Apache-2.0
// The HTTP server: read-only, in threads of its own. One thread has all connections and never waits
// for any of them; a few, which give way to others, answer whole requests.
#pragma once

#include <memory>
#include <optional>

#include "host/web/http_message.h"
#include "host/web/http_options.h"
#include "host/web/http_users.h"

namespace flow::host {

class HttpServer {
 public:
  // Starts to listen. HostError where that cannot be done, UsageError where it would be open to
  // everybody without being told to.
  HttpServer(const HttpOptions& options, HttpHandler handler, const HttpLimits& limits = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Where it listens; with the port that the system chose where 0 was asked for.
  [[nodiscard]] const Endpoint& endpoint() const;

 private:
  class Daemon;
  std::unique_ptr<Daemon> daemon_;
};

}  // namespace flow::host
