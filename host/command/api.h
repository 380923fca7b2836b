// SPDX-License-Identifier: Apache-2.0
// /api/...: the questions of the command line over HTTP. Parameters are its options, and answers
// what it prints as JSON.
#pragma once

#include <atomic>

#include "host/command/web_options.h"
#include "host/web/http_message.h"

namespace flow::host {

class Api {
 public:
  // is_live: whether this process is the one that fills the store. The options outlive it.
  Api(const WebOptions& options, bool is_live) : options_(options), is_live_(is_live) {}

  // UsageError for a question that cannot be right, HostError where the store cannot be read.
  [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;

  // End has answers that are being made given up. Any thread.
  void End() { ended_ = true; }

 private:
  [[nodiscard]] HttpAnswer Status(const HttpRequest& request) const;

  const WebOptions& options_;
  bool is_live_;
  std::atomic<bool> ended_ = false;
};

}  // namespace flow::host
