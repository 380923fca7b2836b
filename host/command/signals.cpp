// SPDX-License-Identifier: Apache-2.0
#include "host/command/signals.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "host/base/error.h"

namespace flow::host {
namespace {

sigset_t SetOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

bool IsEnd(int signal) { return signal == SIGINT || signal == SIGTERM; }

}  // namespace

Signals::Signals() {
  const sigset_t set = SetOf({SIGINT, SIGTERM, SIGHUP, SIGUSR1});
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);  // a reader of the summaries that went is an error of output
  descriptor_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  ending_ = eventfd(0, EFD_CLOEXEC);
  int pipe_ends[2] = {-1, -1};
  if (descriptor_ < 0 || ending_ < 0 || pipe2(pipe_ends, O_NONBLOCK | O_CLOEXEC) != 0) {
    throw HostError("signals cannot be received");
  }
  std::tie(taken_, forward_) = std::pair(pipe_ends[0], pipe_ends[1]);
  thread_ = std::thread([this] { Loop(); });
}

Signals::~Signals() {
  const std::uint64_t one = 1;
  if (write(ending_, &one, sizeof(one)) == sizeof(one)) thread_.join();
  for (const int descriptor : {descriptor_, taken_, forward_, ending_}) close(descriptor);
}

std::optional<int> Signals::Take() {
  int signal = 0;
  if (read(taken_, &signal, sizeof(signal)) != sizeof(signal)) return std::nullopt;
  return signal;
}

void Signals::OnLate(std::function<void()> on_late) {
  const std::lock_guard lock(mutex_);
  on_late_ = std::move(on_late);
}

void Signals::Loop() {
  for (;;) {
    pollfd polled[] = {{descriptor_, POLLIN, 0}, {ending_, POLLIN, 0}};
    if (poll(polled, std::size(polled), UntilLate()) == 0) EndLate();
    if (polled[1].revents != 0) return;
    signalfd_siginfo info{};
    while (read(descriptor_, &info, sizeof(info)) == sizeof(info)) {
      Forward(static_cast<int>(info.ssi_signo));
    }
  }
}

void Signals::Forward(int signal) {
  if (IsEnd(signal)) {
    const auto now = Clock::now();
    if (end_by_ && now - (*end_by_ - kLongestEnd) < kSameWish) return;
    if (end_by_) {
      const sigset_t set = SetOf({SIGINT, SIGTERM});
      pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
      kill(getpid(), signal);
    }
    end_by_ = now + kLongestEnd;
  }
  // A pipe that is full holds enough of them.
  if (write(forward_, &signal, sizeof(signal)) < 0) return;
}

// Milliseconds, as poll wants them.
int Signals::UntilLate() const {
  if (!end_by_) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_by_ - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void Signals::EndLate() {
  const std::lock_guard lock(mutex_);
  if (on_late_) on_late_();
  std::_Exit(kExitTrouble);
}

}  // namespace flow::host
