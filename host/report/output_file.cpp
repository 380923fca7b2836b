#include "host/report/output_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/error.h"

namespace flow::host {

OutputFile::OutputFile(const std::string& path)
    : path_(path), file_(path == "-" ? stdout : std::fopen(path.c_str(), "w")) {
  if (file_ == nullptr) {
    throw HostError(fmt::format("{} cannot be written: {}", path, std::strerror(errno)));
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr && file_ != stdout) std::fclose(file_);
}

void OutputFile::Write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), file_); }

void OutputFile::Close() {
  std::FILE* const file = std::exchange(file_, nullptr);
  const bool failed = std::fflush(file) != 0 || std::ferror(file) != 0;
  const int reason = errno;
  const bool close_failed = file != stdout && std::fclose(file) != 0;
  if (failed || close_failed) {
    throw HostError(fmt::format("{} cannot be written: {}", path_, std::strerror(reason)));
  }
}

}  // namespace flow::host
