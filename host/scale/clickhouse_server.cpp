// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_server.h"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

constexpr std::string_view kSchemes[] = {"http://", "https://"};

// What is wrong with HOST:PORT, whose port may be missing.
std::string CheckHost(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  const bool has_port = colon != std::string_view::npos && host.find(']', colon) == host.npos;
  const std::string_view name = host.substr(0, has_port ? colon : host.npos);
  if (name.empty()) return "it names no host";
  if (!has_port) return "";
  std::uint16_t port = 0;
  const char* const end = host.data() + host.size();
  const auto [stop, error] = std::from_chars(host.data() + colon + 1, end, port);
  return error == std::errc() && stop == end && port > 0 ? "" : "its port is none";
}

// What is wrong; else *server is filled in.
std::string Read(std::string_view url, ClickHouseServer* server) {
  std::string_view scheme;
  for (const std::string_view known : kSchemes) {
    if (url.starts_with(known)) scheme = known;
  }
  if (scheme.empty()) return "it begins with neither http:// nor https://";
  std::string_view rest = url.substr(scheme.size());
  if (rest.find_first_of("?# ") != std::string_view::npos) return "it has more than a database";
  const std::size_t slash = rest.find('/');
  std::string_view path = slash == rest.npos ? "" : rest.substr(slash + 1);
  rest = rest.substr(0, slash);
  const std::size_t at = rest.rfind('@');
  if (at != rest.npos) {
    server->user = rest.substr(0, at);
    if (server->user.empty()) return "its user has no name";
    if (server->user.find(':') != std::string::npos) {
      return "a password on the command line is everybody's to read; it belongs into "
             "--clickhouse-password-file or CLICKHOUSE_PASSWORD";
    }
    rest = rest.substr(at + 1);
  }
  if (path.ends_with('/')) path.remove_suffix(1);
  if (!path.empty()) {
    if (!IsSqlName(path)) return "its database is no name of letters, digits and _";
    server->database = path;
  }
  server->base = fmt::format("{}{}/", scheme, rest);
  return CheckHost(rest);
}

std::string PasswordFrom(const std::string& path) {
  const auto text = ReadGiven(path);
  if (!text || text->empty()) {
    throw UsageError(fmt::format("--clickhouse-password-file: {} cannot be read: {}", path,
                                 text ? "it is empty" : FileTrouble(errno)));
  }
  std::string password = text->substr(0, text->find('\n'));
  if (password.ends_with('\r')) password.pop_back();
  return password;
}

}  // namespace

bool IsSqlName(std::string_view text) {
  const bool is_plain =
      text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") ==
      std::string_view::npos;
  return !text.empty() && is_plain;
}

std::string CheckClickHouseUrl(const std::string& url) {
  ClickHouseServer ignored;
  const std::string wrong = Read(url, &ignored);
  if (wrong.empty()) return "";
  return fmt::format("{} is no URL such as http://user@host:8123/flows: {}", Printable(url), wrong);
}

ClickHouseServer ServerOf(const ClickHouseOptions& options) {
  ClickHouseServer server;
  const std::string wrong = CheckClickHouseUrl(options.url);
  if (!wrong.empty()) throw UsageError("--clickhouse: " + wrong);
  Read(options.url, &server);
  if (!options.password_file.empty()) {
    server.password = PasswordFrom(options.password_file);
  } else if (const char* const password = std::getenv("CLICKHOUSE_PASSWORD")) {
    server.password = password;
  }
  server.ca_file = options.ca_file;
  if (!server.ca_file.empty() && !ReadFile(server.ca_file)) {
    throw UsageError(
        fmt::format("--clickhouse-ca: {} cannot be read: {}", server.ca_file, FileTrouble(errno)));
  }
  return server;
}

}  // namespace flow::host
