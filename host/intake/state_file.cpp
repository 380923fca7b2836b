// SPDX-License-Identifier: Apache-2.0
#include "host/intake/state_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>

#include "host/base/error.h"
#include "host/base/files.h"

namespace flow::host {
namespace {

void SyncAndClose(int descriptor, bool* failed) {
  if (fsync(descriptor) != 0) *failed = true;
  if (close(descriptor) != 0) *failed = true;
}

// The new file takes the old one's place only once it is on the disk, and so does its name.
bool ReplaceFile(const std::string& path, std::string_view text) {
  const std::string part = path + ".part";
  const int file = CreateAnew(part, 0644);
  if (file < 0) return false;
  bool failed = !WriteAll(file, text);
  SyncAndClose(file, &failed);
  if (failed || std::rename(part.c_str(), path.c_str()) != 0) {
    const int reason = errno;
    unlink(part.c_str());  // it may be what fills the disk
    errno = reason;
    return false;
  }
  const std::string directory = std::filesystem::path(path).parent_path().string();
  const int folder = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) SyncAndClose(folder, &failed);
  return !failed;
}

std::string LastLine(std::size_t lines) { return fmt::format("end {}", lines); }

}  // namespace

StateFile::StateFile(const std::string& directory, std::string_view name, std::string_view format)
    : path_((std::filesystem::path(directory) / name).string()), format_(format) {}

bool StateFile::Load(std::int64_t now, const std::function<bool(const std::string& line)>& take,
                     std::string* trouble) const {
  const std::optional<std::string> text = ReadFile(path_);
  if (!text && errno == ENOENT) return false;
  if (!text) {
    throw HostError(fmt::format("{} cannot be read: {}", path_, FileTrouble(errno)));
  }
  std::istringstream file(*text);
  std::string line;
  std::size_t lines = 0;
  bool whole = false;
  if (std::getline(file, line) && line == format_) {
    while (std::getline(file, line) && take(line)) ++lines;
    whole = line == LastLine(lines);
  }
  if (whole) return true;
  const std::string aside = fmt::format("{}.damaged-{}", path_, now);
  const bool moved = std::rename(path_.c_str(), aside.c_str()) == 0;
  *trouble = fmt::format("{} is damaged{}; {} lines in front of the damage are used", path_,
                         moved ? fmt::format(" and now stands aside as {}", aside) : "", lines);
  return false;
}

bool StateFile::Save(const std::vector<std::string>& lines) const {
  std::string text = format_ + "\n";
  for (const std::string& line : lines) text += line + "\n";
  return ReplaceFile(path_, text + LastLine(lines.size()) + "\n");
}

}  // namespace flow::host
