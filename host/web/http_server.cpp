// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_server.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "host/base/error.h"
#include "host/web/http_connections.h"
#include "host/web/http_gate.h"
#include "host/web/http_gzip.h"
#include "host/web/http_workers.h"

namespace flow::host {
namespace {

// The page has its files from here, and nothing from anywhere else; nobody shows it in a frame.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
     "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

std::string_view HeaderOf(MHD_Connection* connection, const char* name) {
  const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

HttpHead HeadOf(MHD_Connection* connection, const char* method) {
  return {.method = method,
          .host = HeaderOf(connection, "Host"),
          .content_length = HeaderOf(connection, "Content-Length"),
          .fetch_site = HeaderOf(connection, "Sec-Fetch-Site"),
          .fetch_mode = HeaderOf(connection, "Sec-Fetch-Mode"),
          .has_chunks = !HeaderOf(connection, "Transfer-Encoding").empty()};
}

MHD_Result AddArgument(void* query, MHD_ValueKind /*kind*/, const char* name, std::size_t name_size,
                       const char* value, std::size_t value_size) {
  static_cast<HttpQuery*>(query)->emplace_back(
      std::string(name, name_size), value == nullptr ? "" : std::string(value, value_size));
  return MHD_YES;
}

HttpRequest RequestOf(MHD_Connection* connection, const char* path) {
  HttpRequest request{.path = path,
                      .query = {},
                      .authorization = std::string(HeaderOf(connection, "Authorization")),
                      .if_none_match = std::string(HeaderOf(connection, "If-None-Match"))};
  request.takes_gzip =
      HeaderOf(connection, "Accept-Encoding").find("gzip") != std::string_view::npos;
  MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, AddArgument, &request.query);
  return request;
}

void MakeSmall(HttpAnswer* answer) {
  constexpr std::size_t kWorthIt = 1000;
  constexpr int kFast = 3;
  if (answer->is_gzip || answer->body.size() < kWorthIt) return;
  answer->body = Gzip(answer->body, kFast);
  answer->is_gzip = true;
}

MHD_Result Send(MHD_Connection* connection, HttpAnswer answer) {
  auto* const body = new std::string(std::move(answer.body));
  MHD_Response* const response = MHD_create_response_from_buffer_with_free_callback_cls(
      body->size(), body->data(), [](void* text) { delete static_cast<std::string*>(text); }, body);
  if (response == nullptr) {
    delete body;
    return MHD_NO;
  }
  for (const auto& [name, value] : kHeaders) MHD_add_response_header(response, name, value);
  MHD_add_response_header(response, "Content-Type", answer.type.c_str());
  MHD_add_response_header(response, "Vary", "Accept-Encoding");
  if (answer.is_gzip) MHD_add_response_header(response, "Content-Encoding", "gzip");
  bool has_age = false;
  for (const auto& [name, value] : answer.headers) {
    has_age |= name == "Cache-Control";
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  if (!has_age) MHD_add_response_header(response, "Cache-Control", "no-store");
  const MHD_Result result =
      MHD_queue_response(connection, static_cast<unsigned>(answer.status), response);
  MHD_destroy_response(response);
  return result;
}

// A socket that listens, and where.
int Listen(Endpoint* endpoint) {
  sockaddr_storage address{};
  socklen_t size = sizeof(sockaddr_in);
  const auto bytes = endpoint->address.bytes();
  if (endpoint->address.family() == Family::kIpv4) {
    auto* const in = reinterpret_cast<sockaddr_in*>(&address);
    in->sin_family = AF_INET;
    in->sin_port = htons(endpoint->port);
    std::memcpy(&in->sin_addr, bytes.data(), bytes.size());
  } else {
    auto* const in6 = reinterpret_cast<sockaddr_in6*>(&address);
    size = sizeof(sockaddr_in6);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(endpoint->port);
    std::memcpy(&in6->sin6_addr, bytes.data(), bytes.size());
  }
  const int made = socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;
  setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (made < 0 || bind(made, generic, size) != 0 || listen(made, SOMAXCONN) != 0) {
    const std::string reason = std::strerror(errno);
    if (made >= 0) close(made);
    throw HostError(fmt::format("--http: {}: {}", endpoint->Text(), reason));
  }
  getsockname(made, generic, &size);
  endpoint->port =
      ntohs(address.ss_family == AF_INET ? reinterpret_cast<sockaddr_in*>(&address)->sin_port
                                         : reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
  return made;
}

}  // namespace

class HttpServer::Daemon {
 public:
  Daemon(const HttpOptions& options, HttpHandler handler, const HttpLimits& limits)
      : limits_(limits),
        gate_(options),
        endpoint_(*options.listen),
        handler_(std::move(handler)),
        connections_(limits),
        workers_(std::in_place, limits.workers, limits.waiting) {
    Start(Listen(&endpoint_));
    sweeper_ = std::thread([this] { Sweep(); });
  }

  ~Daemon() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    changed_.notify_all();
    sweeper_.join();
    workers_.reset();  // which lets go of every connection that it holds
    MHD_stop_daemon(daemon_);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  [[nodiscard]] const Endpoint& endpoint() const { return endpoint_; }

 private:
  // What is known of a request from its head to the end of its answer.
  struct Exchange {
    bool is_new = true;
    HttpRequest request;
    std::optional<HttpAnswer> answer;
  };

  void Start(int socket);
  void Sweep();
  MHD_Result Take(MHD_Connection* connection, const char* path, const char* method,
                  const std::size_t* upload_size, Exchange* exchange);
  void Answer(Exchange* exchange);

  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* url,
                              const char* method, const char* version, const char* upload,
                              std::size_t* upload_size, void** exchange);
  static void OnCompleted(void* self, MHD_Connection* connection, void** exchange,
                          MHD_RequestTerminationCode code);
  static void OnConnection(void* self, MHD_Connection* connection, void** context,
                           MHD_ConnectionNotificationCode code);

  HttpLimits limits_;
  HttpGate gate_;
  Endpoint endpoint_;
  HttpHandler handler_;
  HttpConnections connections_;
  std::optional<HttpWorkers> workers_;
  MHD_Daemon* daemon_ = nullptr;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool ending_ = false;
  std::thread sweeper_;
};

void HttpServer::Daemon::Start(int socket) {
  daemon_ = MHD_start_daemon(
      MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, OnRequest,
      this, MHD_OPTION_LISTEN_SOCKET, socket, MHD_OPTION_NOTIFY_COMPLETED, OnCompleted, this,
      MHD_OPTION_NOTIFY_CONNECTION, OnConnection, this, MHD_OPTION_CONNECTION_LIMIT,
      static_cast<unsigned>(limits_.connections), MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      limits_.request_bytes * 2, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
  if (daemon_ != nullptr) return;
  close(socket);
  throw HostError("--http: the server cannot be started");
}

void HttpServer::Daemon::Sweep() {
  GiveWay();
  const auto pause = std::min(limits_.request / 10, std::chrono::milliseconds(250));
  std::unique_lock lock(mutex_);
  while (!changed_.wait_for(lock, pause, [this] { return ending_; })) {
    connections_.Sweep(HttpConnections::Clock::now());
  }
}

// Called with the head of a request, then with what content there is, which is none that is
// looked at, and again when an answer is there.
MHD_Result HttpServer::Daemon::Take(MHD_Connection* connection, const char* path,
                                    const char* method, const std::size_t* upload_size,
                                    Exchange* exchange) {
  if (std::exchange(exchange->is_new, false)) {
    auto refusal = gate_.Refuses(HeadOf(connection, method));
    return refusal ? Send(connection, *std::move(refusal)) : MHD_YES;
  }
  if (*upload_size != 0) return MHD_NO;
  connections_.Answer(connection);
  if (exchange->answer) return Send(connection, *std::move(exchange->answer));
  exchange->request = RequestOf(connection, path);
  MHD_suspend_connection(connection);
  const bool is_taken = workers_->Post([this, connection, exchange] {
    Answer(exchange);
    MHD_resume_connection(connection);
  });
  if (is_taken) return MHD_YES;
  exchange->answer = ErrorAnswer(503, "too many ask at once; a moment later there is room again");
  exchange->answer->headers.emplace_back("Retry-After", "1");
  MHD_resume_connection(connection);
  return MHD_YES;
}

void HttpServer::Daemon::Answer(Exchange* exchange) {
  const HttpRequest& request = exchange->request;
  try {
    exchange->answer = gate_.RefusesUser(request);
    if (!exchange->answer) exchange->answer = handler_(request);
    if (request.takes_gzip) MakeSmall(&*exchange->answer);
  } catch (const UsageError& error) {
    exchange->answer = ErrorAnswer(400, error.what());
  } catch (const std::exception& error) {
    exchange->answer = ErrorAnswer(500, error.what());
  }
}

MHD_Result HttpServer::Daemon::OnRequest(void* self, MHD_Connection* connection, const char* url,
                                         const char* method, const char* /*version*/,
                                         const char* /*upload*/, std::size_t* upload_size,
                                         void** exchange) {
  if (*exchange == nullptr) *exchange = new Exchange;
  return static_cast<Daemon*>(self)->Take(connection, url, method, upload_size,
                                          static_cast<Exchange*>(*exchange));
}

void HttpServer::Daemon::OnCompleted(void* self, MHD_Connection* connection, void** exchange,
                                     MHD_RequestTerminationCode /*code*/) {
  delete static_cast<Exchange*>(*exchange);
  *exchange = nullptr;
  static_cast<Daemon*>(self)->connections_.Await(connection);
}

void HttpServer::Daemon::OnConnection(void* self, MHD_Connection* connection, void** /*context*/,
                                      MHD_ConnectionNotificationCode code) {
  HttpConnections& connections = static_cast<Daemon*>(self)->connections_;
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) return connections.Close(connection);
  connections.Open(
      connection,
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd);
}

HttpServer::HttpServer(const HttpOptions& options, HttpHandler handler, const HttpLimits& limits)
    : daemon_(std::make_unique<Daemon>(options, std::move(handler), limits)) {}

HttpServer::~HttpServer() = default;

const Endpoint& HttpServer::endpoint() const { return daemon_->endpoint(); }

}  // namespace flow::host
