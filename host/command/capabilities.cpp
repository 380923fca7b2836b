// SPDX-License-Identifier: Apache-2.0
#include "host/command/capabilities.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <set>
#include <system_error>

namespace flow::host {
namespace {

namespace fs = std::filesystem;

// Of one thread, as far as they can be used and as far as they can be taken into use.
struct Capabilities {
  std::uint64_t effective = 0;
  std::uint64_t permitted = 0;
};
constexpr std::uint64_t kPassPermissions = std::uint64_t{1} << CAP_DAC_OVERRIDE;

// The C library has no functions for these.
Capabilities Get() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
  if (syscall(SYS_capget, &header, data) != 0) return {};
  return {std::uint64_t{data[1].effective} << 32 | data[0].effective,
          std::uint64_t{data[1].permitted} << 32 | data[0].permitted};
}

// None of them is inheritable.
bool Set(const Capabilities& wanted) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
  for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i) {
    data[i].effective = static_cast<std::uint32_t>(wanted.effective >> (32 * i));
    data[i].permitted = static_cast<std::uint32_t>(wanted.permitted >> (32 * i));
  }
  return syscall(SYS_capset, &header, data) == 0;
}

// Whether a file, or what stands in a directory, can be used by those capabilities that are in use.
bool CanUse(const LaterUse& use) {
  const int mode = R_OK | (use.writes ? W_OK : 0);
  const auto denies = [mode](const fs::path& path) {
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) != 0 && errno == EACCES;
  };
  if (denies(use.path)) return false;
  std::error_code error;
  for (fs::directory_iterator it(use.path, error), end; it != end; it.increment(error)) {
    if (denies(it->path())) return false;
  }
  return true;
}

// Leaves none in use in this thread.
std::optional<std::string> NeedsPassing(std::span<const LaterUse> uses, std::uint64_t permitted) {
  if ((permitted & kPassPermissions) == 0 || !Set({0, permitted})) return std::nullopt;
  for (const LaterUse& use : uses) {
    if (!use.path.empty() && !CanUse(use)) return use.path;
  }
  return std::nullopt;
}

// They are a thread's own, so each gives up its own: a signal has it do so.
std::atomic<std::uint64_t> kept_by_all = 0;
std::atomic<bool> all_did = true;
sem_t done;

void GiveUpHere() {
  const std::uint64_t left = Get().permitted & kept_by_all;
  if (!Set({left, left}) || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) all_did = false;
}

void OnSignal(int /*signal*/) {
  const int error = errno;
  GiveUpHere();
  sem_post(&done);
  errno = error;
}

bool AwaitDone() {
  timespec by{};
  clock_gettime(CLOCK_REALTIME, &by);
  by.tv_sec += 2;
  while (sem_timedwait(&done, &by) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

// Until there is no thread that was not asked: one that was starts others like itself.
void AskOtherThreads(int signal) {
  std::set<pid_t> asked{gettid()};
  for (bool is_new = true; is_new;) {
    is_new = false;
    std::error_code error;
    for (fs::directory_iterator it("/proc/self/task", error), end; it != end; it.increment(error)) {
      const pid_t thread = std::atoi(it->path().filename().c_str());
      if (!asked.insert(thread).second) continue;
      is_new = true;
      if (syscall(SYS_tgkill, getpid(), thread, signal) == 0 && !AwaitDone()) all_did = false;
    }
    if (error) all_did = false;
  }
}

}  // namespace

bool GiveUpCapabilities(std::span<const LaterUse> uses, std::optional<std::string>* kept) {
  const Capabilities had = Get();
  *kept = NeedsPassing(uses, had.permitted);
  kept_by_all = *kept ? kPassPermissions : 0;
  all_did = true;
  GiveUpHere();
  const int signal = SIGRTMAX - 1;
  struct sigaction ask {};
  struct sigaction before {};
  ask.sa_handler = OnSignal;
  ask.sa_flags = SA_RESTART;
  if (sem_init(&done, 0, 0) != 0 || sigaction(signal, &ask, &before) != 0) return false;
  AskOtherThreads(signal);
  // A thread that blocks the signal may take it later, and would end the process by it.
  if (all_did) sigaction(signal, &before, nullptr);
  return all_did;
}

}  // namespace flow::host
