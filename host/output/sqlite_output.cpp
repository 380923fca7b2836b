// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/printable.h"
#include "host/output/outputs.h"
#include "host/output/sheet_record.h"

namespace flow::host {
namespace {

constexpr int kReportId = 0x464C5250;  // SQLite's application_id

// Somebody else is writing it.
class DatabaseBusy : public HostError {
 public:
  using HostError::HostError;
};

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
    if (!IsPlainOrNone(path)) {
      throw HostError(fmt::format("database {} cannot be written: it is no regular file", path));
    }
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(path.c_str(), &opened);
    database_.reset(opened);
    Check(result);
    if (bucket_) {  // others may read while it is written
      constexpr int kPatienceMs = 10'000;
      sqlite3_busy_timeout(opened, kPatienceMs);
      RefuseBuckets(bucket_->replaces);
      Execute("PRAGMA journal_mode=WAL");  // which stays
    }
    Execute("BEGIN IMMEDIATE");  // rolled back unless it is committed
  }

  void Commit() { Execute("COMMIT"); }

  // A report is marked, so that a later one may take its place.
  void Mark() { Execute(fmt::format("PRAGMA application_id={}", kReportId)); }

  // Refuse throws where there is more than a report.
  void Refuse() {
    if (Ask("SELECT count(*) FROM sqlite_schema").front() == "0" || IsReport()) return;
    throw HostError(fmt::format(
        "database {} holds {}: --replace puts the report in its place, --append adds intervals",
        path_, TablesOfBuckets().empty() ? "tables of others" : "what a collector has counted"));
  }

  // RefuseBuckets throws where no buckets go; beside tables of others only where that is asked for.
  void RefuseBuckets(bool goes_beside_others) {
    if (IsReport()) {  // its rows would be of no time, and stay for ever
      throw HostError(
          fmt::format("database {} holds a report, to which no intervals are added", path_));
    }
    const bool is_own =
        Ask("SELECT count(*) FROM sqlite_schema WHERE type IN ('table', 'view')").front() == "0" ||
        Ask("SELECT count(*) FROM sqlite_schema WHERE type = 'index' "
            "AND name = tbl_name || '_by_bucket'")
                .front() != "0";
    if (is_own || goes_beside_others) return;
    throw HostError(fmt::format(
        "database {} holds tables of others: a collector writes to one of its own", path_));
  }

  void DropBuckets() {
    for (const std::string& table : TablesOfBuckets()) {
      Execute(fmt::format("DROP TABLE {}", Identifier(table)));
    }
  }

  void Begin(const std::string& name, std::span<const SheetColumn> columns) override {
    std::vector<SheetColumn> all(columns.begin(), columns.end());
    if (bucket_) all.insert(all.begin(), SheetColumn{"bucket", true});
    std::vector<std::string> definitions;
    std::vector<std::string> names;
    for (const SheetColumn& column : all) {
      definitions.push_back(Definition(column));
      names.push_back(Identifier(column.name));
    }
    const std::string table = Identifier(name);
    if (!bucket_) Execute(fmt::format("DROP TABLE IF EXISTS {}", table));
    Execute(fmt::format("CREATE TABLE IF NOT EXISTS {} ({})", table, fmt::join(definitions, ", ")));
    if (bucket_) AddMissingColumns(table, all);
    if (bucket_) PrepareBuckets(name);
    insert_ = Prepare(fmt::format("INSERT INTO {} ({}) VALUES ({})", table, fmt::join(names, ", "),
                                  fmt::join(std::vector(all.size(), '?'), ",")));
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
  static std::string Definition(const SheetColumn& column) {
    return fmt::format("{} {}", Identifier(column.name), column.is_number ? "INTEGER" : "TEXT");
  }

  // An older version may have made the table, with fewer columns.
  void AddMissingColumns(const std::string& table, std::span<const SheetColumn> columns) {
    std::set<std::string> known;
    const Statement info = Prepare(fmt::format("PRAGMA table_info({})", table));
    while (sqlite3_step(info.get()) == SQLITE_ROW) {
      known.emplace(reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 1)));
    }
    for (const SheetColumn& column : columns) {
      if (known.contains(column.name)) continue;
      Execute(fmt::format("ALTER TABLE {} ADD COLUMN {}", table, Definition(column)));
    }
  }

  // Old buckets make room for the new one.
  void PrepareBuckets(const std::string& name) {
    const std::string table = Identifier(name);
    Execute(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {} (bucket)",
                        Identifier(name + "_by_bucket"), table));
    if (bucket_->replaces) {
      Execute(fmt::format("DELETE FROM {} WHERE bucket = {}", table, bucket_->start));
    }
    if (bucket_->keep_days != 0) DropOld(table);
  }

  // As many days stay as are kept, of those that have buckets: a clock that leaps ahead takes no
  // more than a day's worth.
  void DropOld(const std::string& table) {
    constexpr std::int64_t kDay = 86400;
    const std::int64_t before = bucket_->start - bucket_->keep_days * kDay;
    if (!LatestBefore(before, table)) return;
    std::int64_t first_kept = bucket_->start / kDay * kDay;
    for (int days = 1; days < bucket_->keep_days; ++days) {
      const std::optional<std::int64_t> latest = LatestBefore(first_kept, table);
      if (!latest) return;
      first_kept = *latest / kDay * kDay;
    }
    Execute(fmt::format("DELETE FROM {} WHERE bucket < {}", table, std::min(before, first_kept)));
  }

  std::optional<std::int64_t> LatestBefore(std::int64_t time, const std::string& table) {
    const Statement query =
        Prepare(fmt::format("SELECT max(bucket) FROM {} WHERE bucket < {}", table, time));
    const bool has_row = sqlite3_step(query.get()) == SQLITE_ROW;
    if (!has_row || sqlite3_column_type(query.get(), 0) == SQLITE_NULL) return std::nullopt;
    return sqlite3_column_int64(query.get(), 0);
  }

  bool IsReport() {
    const bool is_marked = Ask("PRAGMA application_id").front() == std::to_string(kReportId);
    return is_marked && TablesOfBuckets().empty();
  }

  // The first column of what a query gives.
  std::vector<std::string> Ask(const std::string& sql) {
    std::vector<std::string> texts;
    const Statement query = Prepare(sql);
    while (sqlite3_step(query.get()) == SQLITE_ROW) {
      texts.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(query.get(), 0)));
    }
    return texts;
  }

  std::vector<std::string> TablesOfBuckets() {
    return Ask(
        "SELECT m.name FROM sqlite_schema AS m, pragma_table_info(m.name) AS c "
        "WHERE m.type = 'table' AND c.name = 'bucket'");
  }

  void Bind(int place, std::uint64_t value) {
    // The database has no larger integers.
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    Bind(place, static_cast<std::int64_t>(std::min(value, kLargest)));
  }
  void Bind(int place, std::int64_t value) {
    Check(sqlite3_bind_int64(insert_.get(), place, value));
  }
  void Bind(int place, std::monostate) { Check(sqlite3_bind_null(insert_.get(), place)); }
  void Bind(int place, const std::string& raw) {
    const std::string value = Utf8(raw);
    Check(sqlite3_bind_text(insert_.get(), place, value.data(), static_cast<int>(value.size()),
                            SQLITE_TRANSIENT));
  }

  Statement Prepare(const std::string& sql) {
    sqlite3_stmt* prepared = nullptr;
    Check(sqlite3_prepare_v2(database_.get(), sql.c_str(), -1, &prepared, nullptr));
    return Statement(prepared);
  }
  void Execute(const std::string& sql) {
    Check(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
  }
  void Check(int result) const {
    if (result == SQLITE_OK || result == SQLITE_DONE || result == SQLITE_ROW) return;
    const std::string trouble =
        fmt::format("database {} cannot be written: {}", path_, sqlite3_errmsg(database_.get()));
    if (result == SQLITE_BUSY) throw DatabaseBusy(trouble);
    throw HostError(trouble);
  }

  std::string path_;
  std::optional<TimeBucket> bucket_;
  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement insert_;
};

}  // namespace

void AppendSqlite(const SheetRecord& sheets, const std::string& path, const TimeBucket& bucket) {
  Database database(path, bucket);
  sheets.Replay(&database);
  database.Commit();
}

void WriteSqlite(const Report& report, const ReportOptions& options, const std::string& path) {
  Database database(path);
  WriteSheets(report, options, &database);
  database.Mark();
  database.Commit();
}

void PrepareSqlite(const std::string& path, Existing existing) {
  std::error_code missing;
  const bool is_made = existing == Existing::kContinue;
  if (!is_made && !std::filesystem::exists(path, missing)) return;
  const bool takes_buckets = is_made || existing == Existing::kAppend;
  try {
    Database database(path);
    if (takes_buckets) return database.RefuseBuckets(!is_made);
    if (existing == Existing::kRefuse) return database.Refuse();
    database.DropBuckets();
    database.Commit();
  } catch (const DatabaseBusy&) {
    if (!takes_buckets) throw;  // each bucket is tried until it is written, and looks again
  }
}

}  // namespace flow::host
