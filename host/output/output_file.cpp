// SPDX-License-Identifier: Apache-2.0
#include "host/output/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/base/error.h"
#include "host/base/files.h"

namespace flow::host {

OutputFile::OutputFile(const std::string& path) : path_(path) {
  constexpr mode_t kFileMode = 0666;
  int file = -1;
  if (path == "-") {
    std::fflush(stdout);
    file = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);  // a buffer, and its lock, of its own
  } else if (IsPlainOrNone(path)) {
    part_ = path + ".part";
    file = CreateAnew(part_, kFileMode);
  } else {
    file = OpenOutput(path);
  }
  if (file >= 0) file_ = fdopen(file, "w");
  if (file_ == nullptr) {
    throw HostError(fmt::format("{} cannot be written: {}", path, FileTrouble(errno)));
  }
}

OutputFile::~OutputFile() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  if (!part_.empty()) std::remove(part_.c_str());
}

void OutputFile::Write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), file_); }

void OutputFile::Close() {
  std::FILE* const file = std::exchange(file_, nullptr);
  const bool failed = std::fflush(file) != 0 || std::ferror(file) != 0;
  int reason = errno;
  bool close_failed = std::fclose(file) != 0;
  if (!failed && !close_failed && !part_.empty()) {
    close_failed = std::rename(part_.c_str(), path_.c_str()) != 0;
    reason = errno;
  }
  if (failed || close_failed) {
    if (!part_.empty()) std::remove(part_.c_str());
    throw HostError(fmt::format("{} cannot be written: {}", path_, std::strerror(reason)));
  }
}

}  // namespace flow::host
