// SPDX-License-Identifier: Apache-2.0
#include "host/command/service_notice.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace flow::host {
namespace {

// A variable that is of no use to the processes that we start.
std::string TakeVariable(const char* name) {
  const char* const value = std::getenv(name);
  std::string taken = value == nullptr ? "" : value;
  unsetenv(name);
  return taken;
}

}  // namespace

ServiceNotice::ServiceNotice() : socket_(TakeVariable("NOTIFY_SOCKET")) {
  const std::string pid = TakeVariable("WATCHDOG_PID");
  const std::string period = TakeVariable("WATCHDOG_USEC");
  std::int64_t micros = 0;
  std::from_chars(period.data(), period.data() + period.size(), micros);
  const bool is_ours = pid.empty() || pid == std::to_string(getpid());
  if (is_ours && micros > 0) period_ = std::chrono::microseconds(micros / 3);
}

void ServiceNotice::Alive(Clock::time_point now) {
  if (period_ == Clock::duration::zero() || now < next_alive_) return;
  next_alive_ = now + period_;
  Send("WATCHDOG=1");
}

void ServiceNotice::Send(std::string_view text) const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const bool is_usable = socket_.size() > 1 && socket_.size() < sizeof(address.sun_path) &&
                         (socket_[0] == '/' || socket_[0] == '@');
  if (!is_usable) return;
  std::memcpy(address.sun_path, socket_.data(), socket_.size());
  if (socket_[0] == '@') address.sun_path[0] = '\0';  // a name that is no file's
  const int to = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (to < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  static_cast<void>(sendto(to, text.data(), text.size(), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&address), size));
  close(to);
}

}  // namespace flow::host
