// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_message.h"

#include <nlohmann/json.hpp>

namespace flow::host {

HttpAnswer ErrorAnswer(int status, std::string_view text) {
  const nlohmann::json body{{"error", text}};
  HttpAnswer answer{.status = status, .type = kJsonType};
  answer.body = body.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
  return answer;
}

}  // namespace flow::host
