// SPDX-License-Identifier: Apache-2.0
#include "host/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace flow::host {
namespace {

constexpr mode_t kFileMode = 0666;  // less what the umask takes

int CloseWith(int descriptor, int reason) {
  close(descriptor);
  errno = reason;
  return -1;
}

bool IsKernelsOwn(std::string_view path) {
  return path.starts_with("/dev/") || path.starts_with("/proc/");
}

// Takes the descriptor.
std::optional<std::string> ReadAll(int file) {
  if (file < 0) return std::nullopt;
  std::string text;
  std::array<char, 65536> part;
  for (;;) {
    const ssize_t size = read(file, part.data(), part.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      CloseWith(file, errno);
      return std::nullopt;
    }
    if (size == 0) break;
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  close(file);
  return text;
}

}  // namespace

int OpenToRead(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) return -1;
  struct stat status {};
  if (fstat(file, &status) != 0) return CloseWith(file, errno);
  return S_ISREG(status.st_mode) ? file : CloseWith(file, ENOTSUP);
}

std::optional<std::string> ReadFile(const std::string& path) { return ReadAll(OpenToRead(path)); }

std::optional<std::string> ReadGiven(const std::string& path) {
  struct stat status {};
  const bool is_given_pipe =
      IsKernelsOwn(path) && stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
  return is_given_pipe ? ReadAll(open(path.c_str(), O_RDONLY | O_CLOEXEC)) : ReadFile(path);
}

int CreateAnew(const std::string& path, mode_t mode) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return -1;
  return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

int OpenOutput(const std::string& path) {
  struct stat link {};
  struct stat target {};
  const bool is_link = lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode);
  int flags = O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_TRUNC;
  if (is_link) {
    if (stat(path.c_str(), &target) != 0) return -1;
    if (S_ISREG(target.st_mode) && !IsKernelsOwn(path)) {
      errno = ELOOP;
      return -1;
    }
  } else {
    flags |= O_CREAT | O_NOFOLLOW;
  }
  const int file = open(path.c_str(), flags, kFileMode);
  if (file < 0) return -1;
  if (fstat(file, &target) != 0) return CloseWith(file, errno);
  if (S_ISBLK(target.st_mode)) return CloseWith(file, ENOTSUP);
  // A reader may take its time, and is waited for.
  fcntl(file, F_SETFL, O_WRONLY);
  return file;
}

bool IsPlainOrNone(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return errno == ENOENT;
  return S_ISREG(status.st_mode);
}

int OpenLock(const std::string& path) {
  if (!IsPlainOrNone(path)) {
    errno = ENOTSUP;
    return -1;
  }
  constexpr mode_t kMine = 0600;
  const int lock =
      open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kMine);
  return lock < 0 || fchmod(lock, kMine) == 0 ? lock : CloseWith(lock, errno);
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

std::string FileTrouble(int reason) {
  switch (reason) {
    case ENOTSUP:
      return "it is no regular file";
    case ELOOP:
      return "it is a symbolic link; name the file that it leads to";
    case ENXIO:
      return "it is a pipe that nobody reads";
    default:
      return std::strerror(reason);
  }
}

}  // namespace flow::host
