// SPDX-License-Identifier: Apache-2.0
// What is asked over HTTP, and what is answered.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace flow::host {

using HttpQuery = std::vector<std::pair<std::string, std::string>>;  // decoded

struct HttpRequest {
  std::string path;
  HttpQuery query;
  std::string authorization;  // as the header has it
  std::string if_none_match;  // likewise
  bool takes_gzip = false;
};

inline constexpr char kJsonType[] = "application/json";

struct HttpAnswer {
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body{};
  bool is_gzip = false;
  std::vector<std::pair<std::string, std::string>> headers{};
};

// ErrorAnswer is {"error": text}.
HttpAnswer ErrorAnswer(int status, std::string_view text);

// Answers in any of the server's threads.
using HttpHandler = std::function<HttpAnswer(const HttpRequest&)>;

}  // namespace flow::host
