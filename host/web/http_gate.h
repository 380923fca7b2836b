// SPDX-License-Identifier: Apache-2.0
// What is refused before anybody answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/web/http_message.h"
#include "host/web/http_options.h"
#include "host/web/http_users.h"

namespace flow::host {

// The head of a request.
struct HttpHead {
  std::string_view method;
  std::string_view host;  // empty where the header is missing
  std::string_view content_length;
  std::string_view fetch_site;  // where a browser has the request from
  std::string_view fetch_mode;  // and what for
  bool has_chunks = false;
};

class HttpGate {
 public:
  // UsageError where the server would be open to everybody without being told to.
  explicit HttpGate(const HttpOptions& options);

  // Both give what is answered instead; nothing where the request may pass. Refuses is for the
  // thread that must not wait, RefusesUser takes as long as a password's hash.
  [[nodiscard]] std::optional<HttpAnswer> Refuses(const HttpHead& head) const;
  [[nodiscard]] std::optional<HttpAnswer> RefusesUser(const HttpRequest& request);

 private:
  [[nodiscard]] bool IsOurName(std::string_view host) const;

  std::vector<std::string> hosts_;  // names that may stand in the header; empty for any
  std::optional<HttpUsers> users_;
};

// IsLoopback tells whether nobody elsewhere reaches an address.
bool IsLoopback(const IpAddress& address);

}  // namespace flow::host
