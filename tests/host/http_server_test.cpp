// SPDX-License-Identifier: Apache-2.0
// The HTTP server and clients that mean no good.
#include <arpa/inet.h>
#include <crypt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "host/base/error.h"
#include "host/web/http_server.h"

namespace flow::host::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

HttpOptions OnLoopback() {
  HttpOptions options;
  options.listen = Endpoint::Parse("127.0.0.1:0");
  return options;
}

// A connection; what comes is waited for at most half a minute.
class Client {
 public:
  explicit Client(const HttpServer& server) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(server.endpoint().port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{30, 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&to), sizeof(to)), 0);
  }
  ~Client() { close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool Say(std::string_view text) {
    return send(socket_, text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }

  // All until the server closes; is_closed tells whether it did.
  std::string Rest(bool* is_closed = nullptr) {
    std::string all;
    std::array<char, 65536> piece;
    ssize_t size = 0;
    while ((size = recv(socket_, piece.data(), piece.size(), 0)) > 0) {
      all.append(piece.data(), static_cast<std::size_t>(size));
    }
    if (is_closed != nullptr) *is_closed = size == 0 || errno == ECONNRESET;
    return all;
  }

 private:
  int socket_;
};

std::string Get(const std::string& path, const std::string& headers = "") {
  return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + headers + "\r\n";
}

std::string Ask(const HttpServer& server, const std::string& request) {
  Client client(server);
  client.Say(request);
  return client.Rest();
}

HttpAnswer Echo(const HttpRequest& request) {
  HttpAnswer answer{.body = request.path};
  for (const auto& [name, value] : request.query) answer.body += "|" + name + "=" + value;
  return answer;
}

struct Case {
  const char* name;
  std::string request;
  const char* answer;  // how it begins; "" for one that is cut off without a word
  const char* text;
};

class Requests : public testing::TestWithParam<Case> {};

TEST_P(Requests, AreAnswered) {
  const HttpServer server(OnLoopback(), Echo);
  const std::string answer = Ask(server, GetParam().request);
  EXPECT_THAT(answer, StartsWith(GetParam().answer));
  EXPECT_THAT(answer, HasSubstr(GetParam().text));
  if (!answer.empty() && *GetParam().text != '\0') {
    EXPECT_THAT(answer, HasSubstr("Content-Security-Policy: default-src 'none'"));
    EXPECT_THAT(answer, HasSubstr("nosniff"));
  }
  EXPECT_THAT(Ask(server, Get("/after")), HasSubstr("/after"));
}

INSTANTIATE_TEST_SUITE_P(
    All, Requests,
    testing::ValuesIn<Case>({
        {"Query", Get("/a?b=c%26d+e&f"), "HTTP/1.1 200", "/a|b=c&d e|f="},
        {"Post", "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc",
         "HTTP/1.1 405", "GET and HEAD"},
        {"Content", Get("/", "Content-Length: 1000000000000\r\n"), "HTTP/1.1 413", "no content"},
        {"Chunks", Get("/", "Transfer-Encoding: chunked\r\n"), "HTTP/1.1 413", "no content"},
        {"AnotherName", "GET / HTTP/1.1\r\nHost: evil.example:8055\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 403", "evil.example"},
        {"NoHost", "GET / HTTP/1.1\r\nConnection: close\r\n\r\n", "HTTP/1.1 400", ""},
        {"OurAddress", "GET / HTTP/1.1\r\nHost: 127.0.0.1:1\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 200", "/"},
        {"AnotherSite", Get("/", "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: no-cors\r\n"),
         "HTTP/1.1 403", "another site"},
        {"LongHeader", Get("/", "X: " + std::string(1 << 20, 'x') + "\r\n"), "HTTP/1.1 431", ""},
        {"LongLine", Get("/" + std::string(1 << 20, 'x')), "HTTP/1.1 414", ""},
        {"ManyParameters",
         Get("/?" +
             [] {
               std::string all;
               for (int i = 0; i < 100'000; ++i) all += "a&";
               return all;
             }()),
         "HTTP/1.1 414", ""},
        {"NoHttp", std::string("\x16\x03\x01\0\xff\xff\r\n\r\n", 10), "", ""},
    }),
    [](const auto& row) { return std::string(row.param.name); });

// A byte now and then keeps a connection no longer than silence does, and holds up nobody.
TEST(HttpServer, ClientsThatDripAreCutOff) {
  HttpLimits limits;
  limits.request = 1s;
  limits.workers = 1;
  const HttpServer server(OnLoopback(), Echo, limits);
  std::vector<std::thread> drips;
  std::array<bool, 12> is_closed{};
  for (bool& closed : is_closed) {
    drips.emplace_back([&server, &closed] {
      Client client(server);
      client.Say("GET / HTTP/1.1\r\nHost: localhost\r\nX: ");
      const auto end = Clock::now() + 30s;
      while (client.Say("x") && Clock::now() < end) std::this_thread::sleep_for(20ms);
      client.Rest(&closed);
    });
  }
  for (int i = 0; i < 20; ++i) EXPECT_THAT(Ask(server, Get("/meanwhile")), HasSubstr("/meanwhile"));
  for (std::thread& drip : drips) drip.join();
  EXPECT_THAT(is_closed, testing::Each(true));
}

TEST(HttpServer, ACrowdKeepsNobodyOut) {
  HttpLimits limits;
  limits.connections = 16;
  limits.request = 60s;
  const HttpServer server(OnLoopback(), Echo, limits);
  std::vector<std::unique_ptr<Client>> crowd;
  for (int i = 0; i < 64; ++i) crowd.push_back(std::make_unique<Client>(server));
  EXPECT_THAT(Ask(server, Get("/after")), HasSubstr("/after"));
}

TEST(HttpServer, AnAnswerThatNobodyTakesIsLetGo) {
  HttpLimits limits;
  limits.request = 1s;
  limits.answer = 1s;
  constexpr std::size_t kSize = 100 << 20;
  const HttpServer server(
      OnLoopback(), [](const HttpRequest&) { return HttpAnswer{.body = std::string(kSize, 'x')}; },
      limits);
  Client client(server);
  client.Say(Get("/"));
  std::this_thread::sleep_for(3s);
  EXPECT_LT(client.Rest().size(), kSize);
}

TEST(HttpServer, TooManyQuestionsAreTurnedAway) {
  HttpLimits limits;
  limits.workers = 1;
  limits.waiting = 1;
  std::latch begun(1);
  std::latch go(1);
  const HttpServer server(
      OnLoopback(),
      [&](const HttpRequest& request) {
        if (request.path == "/first") begun.count_down();
        go.wait();
        return Echo(request);
      },
      limits);
  Client first(server);
  first.Say(Get("/first"));
  begun.wait();
  Client second(server);
  second.Say(Get("/second"));
  std::string refused;
  while (refused.empty()) {  // until the second one waits
    Client third(server);
    third.Say(Get("/third"));
    if (third.Rest().starts_with("HTTP/1.1 503")) refused = "503";
  }
  go.count_down();
  EXPECT_THAT(first.Rest(), HasSubstr("/first"));
  EXPECT_THAT(second.Rest(), HasSubstr("/second"));
}

std::string FileWith(const std::string& text) {
  std::string path = testing::TempDir() + "users";
  std::ofstream(path) << text;
  return path;
}

TEST(HttpServer, AsksForAPassword) {
  const std::string hash = crypt("right:one", crypt_gensalt("$y$", 1, nullptr, 0));
  HttpOptions options = OnLoopback();
  options.users = FileWith("# who may ask\nann:" + hash + "\n");
  const HttpServer server(options, Echo);
  const auto with = [&](const char* pair) {
    return Ask(server, Get("/", std::string("Authorization: ") + pair + "\r\n")).substr(9, 3);
  };
  EXPECT_EQ(with("Basic YW5uOnJpZ2h0Om9uZQ=="), "200");  // ann:right:one
  EXPECT_EQ(with("Basic YW5uOnJpZ2h0Om9uZQ=="), "200");  // known by now
  EXPECT_EQ(with("Basic YW5uOndyb25n"), "401");          // ann:wrong
  EXPECT_EQ(with("Basic Ym9iOnJpZ2h0Om9uZQ=="), "401");  // bob:right:one
  EXPECT_EQ(with("Basic YW5u"), "401");
  EXPECT_EQ(with("Basic !"), "401");
  EXPECT_EQ(with("Bearer x"), "401");
  EXPECT_THAT(Ask(server, Get("/")), HasSubstr("WWW-Authenticate: Basic"));
}

TEST(HttpServer, IsOpenToOthersOnlyWhereThatIsSaid) {
  HttpOptions options;
  options.listen = Endpoint::Parse("0.0.0.0:0");
  EXPECT_THROW(HttpServer(options, Echo), UsageError);
  options.is_open = true;
  EXPECT_NO_THROW(HttpServer(options, Echo));
}

TEST(HttpServer, TakesNoWeakHash) {
  for (const char* const line :
       {"ann", "ann:", ":x", "ann:plain", "ann:$1$salt$hash", "ann:abJnggxhB/yWI", "ann:$y$"}) {
    HttpOptions options = OnLoopback();
    options.users = FileWith(line);
    EXPECT_THROW(HttpServer(options, Echo), UsageError) << line;
  }
}

}  // namespace
}  // namespace flow::host::test
