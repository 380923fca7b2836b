#include "host/command/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "host/base/error.h"

namespace flow::host {
namespace {

sigset_t SetOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

}  // namespace

Signals::Signals() {
  const sigset_t set = SetOf({SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD});
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);  // a reader of the summaries that went is an error of output
  descriptor_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor_ < 0) throw HostError("signals cannot be received");
}

Signals::~Signals() { close(descriptor_); }

std::optional<int> Signals::Take() {
  signalfd_siginfo info{};
  if (read(descriptor_, &info, sizeof(info)) != sizeof(info)) return std::nullopt;
  return static_cast<int>(info.ssi_signo);
}

void Signals::LetInterrupt() {
  const sigset_t set = SetOf({SIGINT, SIGTERM});
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace flow::host
