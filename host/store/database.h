// SPDX-License-Identifier: Apache-2.0
// SQLite databases: opened, written by prepared statements, read row by row.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace flow::host {

// Identifier quotes a name for SQL.
std::string Identifier(std::string_view name);

// A prepared statement. Places are counted from 1, columns from 0. HostError where one fails.
class Statement {
 public:
  Statement() = default;

  Statement& Bind(int place, std::int64_t value);
  Statement& Bind(int place, std::uint64_t value);  // cut at the largest integer of the database
  Statement& Bind(int place, std::string_view text);
  Statement& Bind(int place, std::span<const std::uint8_t> bytes);
  // Without a copy: the bytes stay until the next step is over.
  Statement& BindStatic(int place, std::span<const std::uint8_t> bytes);
  Statement& BindNull(int place);

  // Step goes to the next row; false when there is none, and then it can be bound anew.
  bool Step();
  // Run is Step for what has no rows.
  void Run() { Step(); }

  [[nodiscard]] std::int64_t Integer(int column) const;
  [[nodiscard]] double Real(int column) const;
  // Both are valid until the next step.
  [[nodiscard]] std::string_view Text(int column) const;
  [[nodiscard]] std::span<const std::uint8_t> Bytes(int column) const;
  [[nodiscard]] bool IsNull(int column) const;
  // A copy, for those that take values as SQLite has them.
  struct FreeValue {
    void operator()(sqlite3_value* value) const { sqlite3_value_free(value); }
  };
  using ValueCopy = std::unique_ptr<sqlite3_value, FreeValue>;
  [[nodiscard]] ValueCopy Value(int column) const {
    return ValueCopy(sqlite3_value_dup(sqlite3_column_value(statement_.get(), column)));
  }

 private:
  friend class Database;
  struct End {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };

  void Check(int result) const;

  std::unique_ptr<sqlite3_stmt, End> statement_;
  std::string_view path_;  // the database's
};

// When what was written has to be on the disk. The end of the process takes nothing in any case.
enum class Sync {
  kAtCheckpoints,  // the machine's end can take the last commits, never their order
  kNever,          // the machine's end can take the database
};

// A database; its statements end before it. HostError where something fails.
class Database {
 public:
  // ToWrite makes a database that is missing; one that is written is in WAL mode until Close.
  static Database ToWrite(const std::string& path, Sync sync = Sync::kAtCheckpoints);
  static Database ToRead(const std::string& path);

  Statement Prepare(const std::string& sql);
  // Execute takes any number of commands without values.
  void Execute(const std::string& sql);
  // Ask gives the first value of a query; nothing where it has no rows.
  std::optional<std::int64_t> Ask(const std::string& sql);

  // A transaction that is not committed never was.
  void Begin() { Execute("BEGIN IMMEDIATE"); }
  void Commit() { Execute("COMMIT"); }
  void Rollback();

  // CloseWritten ends WAL mode as well: who may not write cannot open a database that is left in
  // it. Without it all is kept, too.
  void CloseWritten();

  // WasMoved tells whether its file has gone, or another one has its name: what is written is lost.
  [[nodiscard]] bool WasMoved() const;

  [[nodiscard]] const std::string& path() const { return *path_; }
  [[nodiscard]] sqlite3* get() const { return database_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
  };

  Database(const std::string& path, int flags);
  void Check(int result) const;

  std::unique_ptr<std::string> path_;
  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace flow::host
