// SPDX-License-Identifier: Apache-2.0
#include "host/command/sandbox.h"

#include <fmt/format.h>
#include <sched.h>
#include <seccomp.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "host/base/console.h"

namespace flow::host {
namespace {

// Names that a kernel or the library does not know are passed over.
constexpr const char* kDenied[] = {
    // other programs
    "execve", "execveat", "uselib",
    // other processes
    "ptrace", "process_vm_readv", "process_vm_writev", "process_madvise", "kcmp", "pidfd_getfd",
    "perf_event_open",
    // what is mounted, and where files are by another way than their names
    "mount", "umount", "umount2", "pivot_root", "chroot", "open_tree", "move_mount", "fsopen",
    "fsconfig", "fsmount", "fspick", "mount_setattr", "swapon", "swapoff", "quotactl",
    "quotactl_fd", "name_to_handle_at", "open_by_handle_at", "mknod", "mknodat",
    // the kernel
    "init_module", "finit_module", "delete_module", "create_module", "query_module", "kexec_load",
    "kexec_file_load", "bpf", "userfaultfd", "reboot", "syslog", "acct", "iopl", "ioperm",
    "lookup_dcookie", "nfsservctl", "_sysctl", "vm86", "vm86old", "modify_ldt", "io_uring_setup",
    "io_uring_enter", "io_uring_register",
    // the machine's clock and names
    "settimeofday", "clock_settime", "clock_settime64", "clock_adjtime", "clock_adjtime64",
    "adjtimex", "stime", "sethostname", "setdomainname",
    // who the process is
    "unshare", "setns", "setuid", "setuid32", "setgid", "setgid32", "setreuid", "setreuid32",
    "setregid", "setregid32", "setresuid", "setresuid32", "setresgid", "setresgid32", "setfsuid",
    "setfsuid32", "setfsgid", "setfsgid32", "setgroups", "setgroups32", "capset", "add_key",
    "request_key", "keyctl", "vhangup", "personality"};

// The leak checker of the address sanitizer stops all threads by it.
#if defined(__SANITIZE_ADDRESS__)
constexpr const char* kAllowedAfterAll = "ptrace";
#else
constexpr const char* kAllowedAfterAll = "";
#endif

// A thread may be started, not a namespace.
constexpr unsigned long kNamespaces[] = {CLONE_NEWUSER, CLONE_NEWNS,  CLONE_NEWPID,   CLONE_NEWNET,
                                         CLONE_NEWIPC,  CLONE_NEWUTS, CLONE_NEWCGROUP};
#if defined(__s390__)
constexpr unsigned kCloneFlags = 1;  // its place among the arguments
#else
constexpr unsigned kCloneFlags = 0;
#endif

int AddRules(scmp_filter_ctx filter) {
  int failure = 0;
  const auto note = [&failure](int result) { failure = failure == 0 ? result : failure; };
  for (const char* const name : kDenied) {
    const int number = seccomp_syscall_resolve_name(name);
    if (number == __NR_SCMP_ERROR || std::strcmp(name, kAllowedAfterAll) == 0) continue;
    note(seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), number, 0));
  }
  for (const unsigned long flag : kNamespaces) {
    const scmp_arg_cmp has_flag{kCloneFlags, SCMP_CMP_MASKED_EQ, flag, flag};
    note(seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1, &has_flag));
  }
  // A filter cannot see its flags; the C library goes on with clone.
  note(seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0));
  return failure;
}

// 0, or the error.
int DenySystemCalls() {
  const std::unique_ptr<void, void (*)(scmp_filter_ctx)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                                seccomp_release);
  if (!filter) return ENOMEM;
  int failure = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1);
  if (failure == 0) failure = AddRules(filter.get());
  if (failure == 0) failure = seccomp_load(filter.get());
  return -failure;
}

}  // namespace

std::vector<LaterUse> UsesOf(const WebOptions& options) {
  std::vector<LaterUse> uses{{options.store},
                             {options.names},
                             {options.http.users},
                             {options.clickhouse.password_file},
                             {options.clickhouse.ca_file}};
  for (const std::string& file : options.geo) uses.push_back({file});
  return uses;
}

void EnterSandbox(std::span<const LaterUse> uses, Console& console) {
  std::optional<std::string> kept;
  if (!GiveUpCapabilities(uses, &kept)) {
    console.Notice("capabilities are kept: they cannot be given up in all threads");
  }
  if (kept) {
    console.Notice(fmt::format(
        "the capability to pass over permissions is kept, as {} is not this user's own", *kept));
  }
  if (const int error = DenySystemCalls(); error != 0) {
    console.Notice(fmt::format("no system call is denied: {}", std::strerror(error)));
  }
}

}  // namespace flow::host
