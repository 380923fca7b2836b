// SPDX-License-Identifier: Apache-2.0
#include "host/store/store_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// Beside a database that is written; SQLite gives them the database's mode.
constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

// When the hour of a file's name begins; -1 for another name.
std::int64_t HourOf(const std::string& name) {
  std::tm hour{};
  const char* const end = strptime(name.c_str(), "%Y-%m-%dT%H", &hour);
  return end == nullptr || std::string_view(end) != ".sqlite" ? -1 : timegm(&hour);
}

// Those of a database that was removed are none of the next one's.
void DropCompanions(const std::string& path) {
  std::error_code ignored;
  for (const char* const companion : kCompanions)
    std::filesystem::remove(path + companion, ignored);
}

}  // namespace

void MakeDirectories(const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(FlowDirectory(directory), error);
  if (error) throw HostError(fmt::format("{}: {}", directory, error.message()));
}

void MakeFile(const std::string& path) {
  constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP;
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
  if (file < 0) {
    const int reason = errno == EEXIST ? ENOTSUP : errno;
    if (reason == ENOTSUP && IsPlainOrNone(path)) return;
    throw HostError(fmt::format("{}: {}", path, FileTrouble(reason)));
  }
  fchmod(file, kMode);  // whatever the umask
  close(file);
  DropCompanions(path);
}

WriterLock::WriterLock(const std::string& directory) {
  MakeDirectories(directory);
  const std::string path = directory + "/writer.lock";
  file_ = OpenLock(path);
  if (file_ < 0) throw HostError(fmt::format("{}: {}", path, FileTrouble(errno)));
  if (flock(file_, LOCK_EX | LOCK_NB) == 0) return;
  close(file_);
  throw HostError(fmt::format("the store {} is being written by another process", directory));
}

WriterLock::~WriterLock() { close(file_); }

std::vector<FlowFileEntry> ListFlowFiles(const std::string& directory) {
  std::vector<FlowFileEntry> entries;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(FlowDirectory(directory), ignored)) {
    const std::int64_t hour = HourOf(entry.path().filename().string());
    if (hour < 0) continue;
    std::uintmax_t bytes = entry.file_size(ignored);
    for (const char* const companion : kCompanions) {
      const std::uintmax_t more =
          std::filesystem::file_size(entry.path().string() + companion, ignored);
      if (!ignored) bytes += more;
    }
    entries.push_back({hour, entry.path().string(), bytes});
  }
  std::ranges::sort(entries, {}, &FlowFileEntry::hour);
  return entries;
}

void DropFile(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  DropCompanions(path);
}

void LeaveAsItIs(Database* database) {
  sqlite3_db_config(database->get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace flow::host
