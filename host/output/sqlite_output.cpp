#include "host/output/sqlite_output.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>

#include "host/base/error.h"
#include "host/output/sheets.h"

namespace flow::host {
namespace {

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct EndStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, EndStatement>;

std::string Identifier(const std::string& name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted.push_back('"');
    quoted.push_back(c);
  }
  return quoted + '"';
}

class Database final : public SheetSink {
 public:
  // With a bucket, tables stay as they are, and rows are added to them.
  explicit Database(const std::string& path, std::optional<TimeBucket> bucket = std::nullopt)
      : path_(path), bucket_(bucket) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(path.c_str(), &opened);
    database_.reset(opened);
    Check(result);
    if (bucket_) {  // others may read while it is written
      constexpr int kPatienceMs = 10'000;
      sqlite3_busy_timeout(opened, kPatienceMs);
      Execute("PRAGMA journal_mode=WAL");
    }
    Execute("BEGIN IMMEDIATE");  // rolled back unless it is committed
  }

  void Commit() { Execute("COMMIT"); }

  void Begin(const std::string& name, std::span<const SheetColumn> columns) override {
    std::string definitions = bucket_ ? "bucket INTEGER" : "";
    std::string places = bucket_ ? "?" : "";
    for (const SheetColumn& column : columns) {
      definitions += fmt::format("{}{} {}", definitions.empty() ? "" : ", ",
                                 Identifier(column.name), column.is_number ? "INTEGER" : "TEXT");
      places += places.empty() ? "?" : ",?";
    }
    const std::string table = Identifier(name);
    if (!bucket_) Execute(fmt::format("DROP TABLE IF EXISTS {}", table));
    Execute(fmt::format("CREATE TABLE IF NOT EXISTS {} ({})", table, definitions));
    if (bucket_) PrepareBuckets(name);
    sqlite3_stmt* prepared = nullptr;
    const std::string insert = fmt::format("INSERT INTO {} VALUES ({})", Identifier(name), places);
    Check(sqlite3_prepare_v2(database_.get(), insert.c_str(), -1, &prepared, nullptr));
    insert_.reset(prepared);
  }

  void Row(std::span<const Cell> cells) override {
    int place = 0;
    if (bucket_) Bind(++place, bucket_->start);
    for (const Cell& cell : cells) {
      ++place;
      std::visit([&](const auto& value) { Bind(place, value); }, cell);
    }
    Check(sqlite3_step(insert_.get()));
    Check(sqlite3_reset(insert_.get()));
  }

  void End() override { insert_.reset(); }

 private:
  // Old buckets make room for the new one.
  void PrepareBuckets(const std::string& name) {
    constexpr std::int64_t kDay = 86400;
    const std::string table = Identifier(name);
    Execute(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {} (bucket)",
                        Identifier(name + "_by_bucket"), table));
    if (bucket_->keep_days == 0) return;
    Execute(fmt::format("DELETE FROM {} WHERE bucket < {}", table,
                        bucket_->start - bucket_->keep_days * kDay));
  }

  void Bind(int place, std::uint64_t value) {
    // The database has no larger integers.
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    Bind(place, static_cast<std::int64_t>(std::min(value, kLargest)));
  }
  void Bind(int place, std::int64_t value) {
    Check(sqlite3_bind_int64(insert_.get(), place, value));
  }
  void Bind(int place, const std::string& value) {
    Check(sqlite3_bind_text(insert_.get(), place, value.data(), static_cast<int>(value.size()),
                            SQLITE_TRANSIENT));
  }

  void Execute(const std::string& sql) {
    Check(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
  }
  void Check(int result) const {
    if (result == SQLITE_OK || result == SQLITE_DONE || result == SQLITE_ROW) return;
    throw HostError(
        fmt::format("database {} cannot be written: {}", path_, sqlite3_errmsg(database_.get())));
  }

  std::string path_;
  std::optional<TimeBucket> bucket_;
  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement insert_;
};

}  // namespace

void AppendSqlite(const Report& report, const ReportOptions& options, const std::string& path,
                  const TimeBucket& bucket) {
  Database database(path, bucket);
  WriteSheets(report, options, &database);
  database.Commit();
}

void WriteSqlite(const Report& report, const ReportOptions& options, const std::string& path) {
  Database database(path);
  WriteSheets(report, options, &database);
  database.Commit();
}

}  // namespace flow::host
