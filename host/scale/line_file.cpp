// SPDX-License-Identifier: Apache-2.0
#include "host/scale/line_file.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/scale/json_row.h"

namespace flow::host {
namespace {

constexpr std::size_t kFull = std::size_t{256} << 10;

}  // namespace

LineFile::LineFile(const std::string& path)
    : MessageSink(std::make_unique<JsonRow>()),
      descriptor_(path == "-" ? dup(STDOUT_FILENO) : OpenOutput(path)) {
  if (descriptor_ < 0) throw HostError(fmt::format("{}: {}", path, FileTrouble(errno)));
  struct stat status {};
  if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) most_at_once_ = kFull;
}

LineFile::~LineFile() { close(descriptor_); }

bool LineFile::Put(Topic /*topic*/, std::string_view /*key*/, std::string_view message) {
  waiting_ += message;
  waiting_ += '\n';
  ++lines_;
  if (waiting_.size() >= kFull) Flush();
  return true;
}

// Whole lines go, or none: what could not be written is lost, and the next line begins anew.
void LineFile::Flush() {
  if (!Write()) lost_ += lines_;
  waiting_.clear();
  lines_ = 0;
}

bool LineFile::Write() {
  constexpr int kTurn = 100;  // milliseconds between two looks at gives_up_
  std::string_view left = waiting_;
  while (!left.empty() && !gives_up_) {
    pollfd ready{descriptor_, POLLOUT, 0};
    const int count = poll(&ready, 1, kTurn);
    if (count == 0 || (count < 0 && errno == EINTR)) continue;
    const ssize_t written = write(descriptor_, left.data(), std::min(left.size(), most_at_once_));
    if (written < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (written > 0) left.remove_prefix(static_cast<std::size_t>(written));
  }
  return left.empty();
}

}  // namespace flow::host
