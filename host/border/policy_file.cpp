// SPDX-License-Identifier: Apache-2.0
#include "host/border/policy_file.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "host/policy/default_policies.h"

namespace flow::host {

void PolicyFile::UseAt(const std::filesystem::path& path) {
  path_ = path;
  in_force_ = {};
  Look(&in_force_);
}

void PolicyFile::Hear(std::string_view line) {
  constexpr std::string_view kInterval = "CONFIGRELOAD: Will check and reload config every ";
  constexpr std::string_view kReloaded = "CONFIGREFRESH:  Reloaded configuration file";
  if (line.starts_with(kInterval)) {
    line.remove_prefix(kInterval.size());
    std::from_chars(line.data(), line.data() + line.size(), interval_);
  }
  if (!line.starts_with(kReloaded)) return;
  ++reloads_;
  Look(&in_force_);
}

bool PolicyFile::IsInForce() const {
  Edition now;
  return Look(&now) && now == in_force_;
}

std::string PolicyFile::WhyNotReloaded() const {
  Edition now;
  if (!Look(&now)) return fmt::format("it cannot be read: {}", std::strerror(errno));
  if (now == in_force_) return "it is unchanged";
  if (interval_ > 0) return "it has changed, but its time is no newer than before; touch it";
  if (path_.filename() == kNetflowPolicyFile) {
    return "it has changed, but ReloadConfigCheckSeconds was below 60; that takes a restart";
  }
  return "it has changed, and that takes a restart";
}

bool PolicyFile::Look(Edition* edition) const {
  struct stat status {};
  if (access(path_.c_str(), R_OK) != 0 || stat(path_.c_str(), &status) != 0) return false;
  *edition = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_size, status.st_ino};
  return true;
}

}  // namespace flow::host
