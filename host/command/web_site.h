// SPDX-License-Identifier: Apache-2.0
// What stands at the addresses of the web.
#pragma once

#include "host/command/api.h"
#include "host/command/web_options.h"
#include "host/web/http_message.h"
#include "host/web/page_answers.h"

namespace flow::host {

class WebSite {
 public:
  // As Api has them. HostError and UsageError where the options cannot be used.
  WebSite(const WebOptions& options, bool is_live);

  [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;

  // End has answers that are being made given up, so that a server can end.
  void End() { api_.End(); }

 private:
  bool has_store_;
  Api api_;
  PageAnswers page_;
};

}  // namespace flow::host
