// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_client.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "host/base/printable.h"
#include "host/store/read_limit.h"

namespace flow::host {
namespace {

// Connections are made in so many seconds; a server may be at a block for as many without a byte.
constexpr long kConnectSeconds = 5;
constexpr long kSilentSeconds = 60;
constexpr long kSilentAtLength = 900;
constexpr long kAliveSeconds = 20;  // then a connection is looked at
// Of an error's text.
constexpr std::size_t kLongestTold = 300;

std::size_t TakeAnswer(const char* bytes, std::size_t, std::size_t size, void* answer) {
  static_cast<std::string*>(answer)->append(bytes, size);
  return size;
}

int LookWhetherAborted(void* is_aborted, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const bool is_over = ReadLimit::Current().IsOver();
  return is_over || *static_cast<const std::atomic<bool>*>(is_aborted) ? 1 : 0;
}

std::string Escaped(CURL* curl, const std::string& text) {
  char* const escaped = curl_easy_escape(curl, text.data(), static_cast<int>(text.size()));
  std::string copy = escaped == nullptr ? "" : escaped;
  curl_free(escaped);
  return copy;
}

// The first line of what a server says is wrong.
std::string TroubleOf(const std::string& answer, long status) {
  std::string text = answer.substr(0, std::min(answer.find('\n'), kLongestTold));
  return text.empty() ? fmt::format("status {}", status) : Printable(text);
}

}  // namespace

class ClickHouseClient::Handle {
 public:
  explicit Handle(const ClickHouseServer& server) {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    curl_ = curl_easy_init();
    if (curl_ == nullptr) throw HostError("libcurl gives no handle");
    Header("X-ClickHouse-User: " + server.user);
    Header("X-ClickHouse-Key: " + server.password);
    Header("Expect:");  // no round trip before a body
    Header("Content-Type: application/octet-stream");
  }
  ~Handle() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(curl_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  [[nodiscard]] CURL* curl() const { return curl_; }
  [[nodiscard]] curl_slist* headers() const { return headers_; }

 private:
  void Header(const std::string& line) { headers_ = curl_slist_append(headers_, line.c_str()); }

  CURL* curl_;
  curl_slist* headers_ = nullptr;
};

ClickHouseClient::ClickHouseClient(ClickHouseServer server)
    : server_(std::move(server)), handle_(std::make_unique<Handle>(server_)) {}

ClickHouseClient::~ClickHouseClient() = default;

bool ClickHouseClient::IsBuiltIn() { return true; }

// On a connection that was in use before, libcurl sends again by itself where it finds it closed.
std::string ClickHouseClient::Post(const std::string& arguments, std::string_view body,
                                   const Manner& manner) {
  CURL* const curl = handle_->curl();
  const std::string url =
      fmt::format("{}?database={}{}", server_.base, server_.database, arguments);
  std::string answer;
  char trouble[CURL_ERROR_SIZE] = "";
  curl_easy_reset(curl);  // the connection stays
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, handle_->headers());
  curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, manner.is_fresh ? 1L : 0L);
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, manner.silent_seconds);
  curl_easy_setopt(curl, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(curl, CURLOPT_TCP_KEEPIDLE, kAliveSeconds);
  curl_easy_setopt(curl, CURLOPT_TCP_KEEPINTVL, kAliveSeconds);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, TakeAnswer);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, LookWhetherAborted);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &is_aborted_);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, trouble);
  if (!server_.ca_file.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO, server_.ca_file.c_str());
  const CURLcode code = curl_easy_perform(curl);
  if (code != CURLE_OK && ReadLimit::Current().IsOver()) throw HostError(kTooLong);
  if (code != CURLE_OK) {
    const char* const why = trouble[0] != '\0' ? trouble : curl_easy_strerror(code);
    throw HostError(fmt::format("ClickHouse at {}: {}", server_.Text(), why));
  }
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  if (status != 200) {
    throw ClickHouseRefusal(
        fmt::format("ClickHouse at {} refuses: {}", server_.Text(), TroubleOf(answer, status)));
  }
  return answer;
}

void ClickHouseClient::Insert(const std::string& statement, const std::string& query_id,
                              std::string_view rows) {
  CURL* const curl = handle_->curl();
  Post(fmt::format("&query_id={}&query={}", Escaped(curl, query_id), Escaped(curl, statement)),
       rows, {true, kSilentSeconds});
}

// Without the setting a server that fails in the middle of an answer has said already that all is
// well.
std::string ClickHouseClient::Ask(const std::string& query) {
  return Post("&wait_end_of_query=1", query, {false, kSilentSeconds});
}

// A server does not notice that nobody waits any more.
std::string ClickHouseClient::AskAtLength(const std::string& query) {
  std::string arguments =
      "&wait_end_of_query=1&max_bytes_before_external_group_by=2000000000"
      "&distributed_aggregation_memory_efficient=1&max_query_size=16777216";
  if (const auto left = ReadLimit::Current().SecondsLeft()) {
    arguments += fmt::format("&max_execution_time={}", std::max<std::int64_t>(*left, 1));
  }
  return Post(arguments, query, {false, kSilentAtLength});
}

}  // namespace flow::host
