#include "host/output/output_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/base/error.h"

namespace flow::host {

OutputFile::OutputFile(const std::string& path) : path_(path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::symlink_status(path, error);
  // A device, a pipe, and what a link points to are written as they are.
  if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) {
    part_ = path + ".part";
  }
  if (path == "-") part_.clear();
  file_ = path == "-" ? stdout : std::fopen((part_.empty() ? path : part_).c_str(), "w");
  if (file_ == nullptr) {
    throw HostError(fmt::format("{} cannot be written: {}", path, std::strerror(errno)));
  }
}

OutputFile::~OutputFile() {
  if (file_ == nullptr) return;
  if (file_ != stdout) std::fclose(file_);
  if (!part_.empty()) std::remove(part_.c_str());
}

void OutputFile::Write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), file_); }

void OutputFile::Close() {
  std::FILE* const file = std::exchange(file_, nullptr);
  const bool failed = std::fflush(file) != 0 || std::ferror(file) != 0;
  int reason = errno;
  bool close_failed = file != stdout && std::fclose(file) != 0;
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
