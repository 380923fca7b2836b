// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_gate.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/error.h"
#include "host/base/words.h"

namespace flow::host {
namespace {

// "[::1]:8055" is reached by "::1".
std::string_view WithoutPort(std::string_view host) {
  if (host.starts_with('[')) return host.substr(1, host.find(']') - 1);
  return host.substr(0, host.find(':'));
}

}  // namespace

bool IsLoopback(const IpAddress& address) {
  if (address.family() == Family::kIpv4) return address.AsIpv4() >> 24 == 127;
  return address.Text() == "::1";
}

HttpGate::HttpGate(const HttpOptions& options) {
  const IpAddress& address = options.listen->address;
  if (!options.users.empty()) users_.emplace(options.users);
  if (!IsLoopback(address)) {
    if (users_ || options.is_open) return;
    throw UsageError(fmt::format(
        "--http: {} is reached from elsewhere; --http-user FILE tells who may ask, --http-open "
        "lets everybody",
        address.Text()));
  }
  hosts_ = options.hosts;
  hosts_.insert(hosts_.end(), {"localhost", "127.0.0.1", "::1", address.Text()});
}

// A page of strangers can have a name of theirs lead to this machine, and have a browser ask.
bool HttpGate::IsOurName(std::string_view host) const {
  const std::string_view name = WithoutPort(host);
  return hosts_.empty() || std::ranges::any_of(hosts_, [&](const std::string& known) {
           return SameWord(known, name);
         });
}

std::optional<HttpAnswer> HttpGate::Refuses(const HttpHead& head) const {
  if (head.method != "GET" && head.method != "HEAD") {
    HttpAnswer answer = ErrorAnswer(405, "nothing can be changed here: GET and HEAD alone");
    answer.headers.emplace_back("Allow", "GET, HEAD");
    return answer;
  }
  if (head.has_chunks || (!head.content_length.empty() && head.content_length != "0")) {
    return ErrorAnswer(413, "a request has no content");
  }
  if (!IsOurName(head.host)) {
    return ErrorAnswer(403, fmt::format("this server is not known as '{}'; --http-host tells it",
                                        WithoutPort(head.host)));
  }
  // A link may lead here, a script of another site may not ask.
  if (head.fetch_site == "cross-site" && head.fetch_mode != "navigate")
    return ErrorAnswer(403, "another site's page asks");
  return std::nullopt;
}

std::optional<HttpAnswer> HttpGate::RefusesUser(const HttpRequest& request) {
  if (!users_ || users_->Knows(request.authorization)) return std::nullopt;
  HttpAnswer answer = ErrorAnswer(401, "a name and a password are needed");
  answer.headers.emplace_back("WWW-Authenticate", "Basic realm=\"flowhost\", charset=\"UTF-8\"");
  return answer;
}

}  // namespace flow::host
