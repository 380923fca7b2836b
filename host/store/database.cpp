// SPDX-License-Identifier: Apache-2.0
#include "host/store/database.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <limits>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/store/read_limit.h"

namespace flow::host {
namespace {

[[noreturn]] void Fail(std::string_view path, sqlite3* database, int result) {
  if (result == SQLITE_INTERRUPT) throw HostError(kTooLong);
  const char* const reason =
      database == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(database);
  throw HostError(fmt::format("database {}: {}", path, reason));
}

}  // namespace

std::string Identifier(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted.push_back('"');
    quoted.push_back(c);
  }
  return quoted + '"';
}

Statement& Statement::Bind(int place, std::int64_t value) {
  Check(sqlite3_bind_int64(statement_.get(), place, value));
  return *this;
}

Statement& Statement::Bind(int place, std::uint64_t value) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  return Bind(place, static_cast<std::int64_t>(std::min(value, kLargest)));
}

Statement& Statement::Bind(int place, std::string_view text) {
  Check(sqlite3_bind_text64(statement_.get(), place, text.data() == nullptr ? "" : text.data(),
                            text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

Statement& Statement::Bind(int place, std::span<const std::uint8_t> bytes) {
  Check(sqlite3_bind_blob64(statement_.get(), place, bytes.data(), bytes.size(), SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::BindStatic(int place, std::span<const std::uint8_t> bytes) {
  Check(sqlite3_bind_blob64(statement_.get(), place, bytes.data(), bytes.size(), SQLITE_STATIC));
  return *this;
}

Statement& Statement::BindNull(int place) {
  Check(sqlite3_bind_null(statement_.get(), place));
  return *this;
}

bool Statement::Step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) {
    if (result == SQLITE_INTERRUPT) throw HostError(kTooLong);
    const std::string_view reason = sqlite3_errmsg(sqlite3_db_handle(statement_.get()));
    const std::string text = fmt::format("database {}: {}", path_, reason);
    sqlite3_reset(statement_.get());
    throw HostError(text);
  }
  Check(sqlite3_reset(statement_.get()));
  return false;
}

std::int64_t Statement::Integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::Real(int column) const { return sqlite3_column_double(statement_.get(), column); }

std::string_view Statement::Text(int column) const {
  const auto* const text =
      reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return text == nullptr ? std::string_view() : std::string_view(text, static_cast<size_t>(size));
}

std::span<const std::uint8_t> Statement::Bytes(int column) const {
  const auto* const bytes =
      static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

bool Statement::IsNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void Statement::Check(int result) const {
  if (result != SQLITE_OK) Fail(path_, sqlite3_db_handle(statement_.get()), result);
}

Database::Database(const std::string& path, int flags)
    : path_(std::make_unique<std::string>(path)) {
  constexpr int kPatienceMs = 10'000;
  // Nobody asks SQLite how much memory it has, and a database is one thread's at a time.
  static const int without_statistics = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  static_cast<void>(without_statistics);
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(opened);
  Check(result);
  sqlite3_busy_timeout(opened, kPatienceMs);
}

Database Database::ToWrite(const std::string& path, Sync sync) {
  Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  database.Execute(
      fmt::format("PRAGMA synchronous={}; PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=4000",
                  sync == Sync::kNever ? "OFF" : "NORMAL"));
  return database;
}

// One thread's alone: a lock a column is a fifth of what reading flows takes.
Database Database::ToRead(const std::string& path) {
  constexpr int kSteps = 100'000;  // of SQLite's machine; about a millisecond
  if (!std::filesystem::is_regular_file(path) && std::filesystem::exists(path)) {
    throw HostError(fmt::format("database {}: {}", path, FileTrouble(ENOTSUP)));
  }
  Database database(path, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX);
  if (ReadLimit::Current().IsSet()) {
    sqlite3_progress_handler(
        database.get(), kSteps,
        [](void*) { return static_cast<int>(ReadLimit::Current().IsOver()); }, nullptr);
  }
  return database;
}

Statement Database::Prepare(const std::string& sql) {
  sqlite3_stmt* prepared = nullptr;
  Check(sqlite3_prepare_v3(database_.get(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                           nullptr));
  Statement statement;
  statement.statement_.reset(prepared);
  statement.path_ = *path_;
  return statement;
}

void Database::Execute(const std::string& sql) {
  Check(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
}

std::optional<std::int64_t> Database::Ask(const std::string& sql) {
  Statement statement = Prepare(sql);
  if (!statement.Step()) return std::nullopt;
  return statement.Integer(0);
}

void Database::Rollback() {
  if (sqlite3_get_autocommit(database_.get()) == 0) Execute("ROLLBACK");
}

bool Database::WasMoved() const {
  int moved = 0;
  return sqlite3_file_control(database_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) ==
             SQLITE_OK &&
         moved != 0;
}

void Database::CloseWritten() {
  // Fails while others read, and then the next who writes does it.
  sqlite3_busy_timeout(database_.get(), 0);
  sqlite3_exec(database_.get(), "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr);
  database_.reset();
}

void Database::Check(int result) const {
  if (result != SQLITE_OK) Fail(*path_, database_.get(), result);
}

}  // namespace flow::host
