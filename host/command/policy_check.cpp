// SPDX-License-Identifier: Apache-2.0
#include "host/command/policy_check.h"

#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "host/base/error.h"
#include "host/command/capabilities.h"
#include "host/command/meter_setup.h"

namespace flow::host {
namespace {

std::vector<std::string> WordsOf(const MeterOptions& options, const SiteSettings& settings) {
  std::vector<std::string> words{"flowhost", "check-config", "--quiet", "--data",
                                 settings.data_directory.string()};
  if (!options.plugin.empty()) words.insert(words.end(), {"--plugin", options.plugin});
  words.insert(words.end(), {"--", settings.config_directory.string()});
  return words;
}

void HandleSignals(void (*handler)(int)) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) std::signal(signal, handler);
}

// The helper, which has one thread; the end of the socket is its end, and the end of its checks.
class Helper {
 public:
  Helper(int socket, std::vector<std::string> words) : socket_(socket), words_(std::move(words)) {
    for (std::string& word : words_) arguments_.push_back(word.data());
    arguments_.push_back(nullptr);
  }

  [[noreturn]] void Serve() {
    prctl(PR_SET_NAME, "flowhost-checks");
    HandleSignals(SIG_IGN);
    for (char wish = 0; recv(socket_, &wish, 1, 0) == 1;) {
      const bool usable = Check();
      if (send(socket_, &usable, sizeof(usable), MSG_NOSIGNAL) < 0) break;
    }
    _exit(kExitOk);
  }

 private:
  [[nodiscard]] bool Check() {
    const pid_t self = getpid();
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // it may hang where we do not
      if (getppid() != self) _exit(kExitTrouble);
      HandleSignals(SIG_DFL);
      execv("/proc/self/exe", arguments_.data());
      _exit(kExitTrouble);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) &&
           (WEXITSTATUS(status) == kExitOk || WEXITSTATUS(status) == kExitWarnings);
  }

  int socket_;
  std::vector<std::string> words_;
  std::vector<char*> arguments_;
};

}  // namespace

PolicyCheck::PolicyCheck(const MeterOptions& options) {
  const SiteSettings settings = SettingsFrom(options);
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw HostError(fmt::format("policies cannot be checked: {}", std::strerror(errno)));
  }
  const pid_t owner = getpid();
  helper_ = fork();
  if (helper_ == 0) {
    close(ends[0]);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != owner) _exit(kExitOk);
    const LaterUse uses[] = {{settings.config_directory.string()},
                             {settings.data_directory.string()}};
    std::optional<std::string> kept;
    static_cast<void>(GiveUpCapabilities(uses, &kept));
    Helper(ends[1], WordsOf(options, settings)).Serve();
  }
  close(ends[1]);
  socket_ = ends[0];
  if (helper_ > 0) return;
  close(socket_);
  throw HostError("no process can be started that checks policies");
}

PolicyCheck::~PolicyCheck() {
  if (socket_ >= 0) close(socket_);
  kill(helper_, SIGKILL);
  waitpid(helper_, nullptr, 0);
}

void PolicyCheck::Start() {
  const char wish = 'c';
  if (socket_ < 0 || send(socket_, &wish, 1, MSG_NOSIGNAL | MSG_DONTWAIT) != 1) {
    throw HostError("the policies cannot be checked: the process for that is gone");
  }
}

std::optional<bool> PolicyCheck::Result() {
  bool usable = false;
  const ssize_t length = recv(socket_, &usable, sizeof(usable), MSG_DONTWAIT);
  if (length == sizeof(usable)) return usable;
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
  close(std::exchange(socket_, -1));
  return false;
}

}  // namespace flow::host
