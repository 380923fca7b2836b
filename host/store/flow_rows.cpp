// SPDX-License-Identifier: Apache-2.0
#include "host/store/flow_rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "host/base/error.h"

namespace flow::host {
namespace {

// Few enough for the caches.
constexpr std::size_t kMostRows = 512;

}  // namespace

// A walk over the rows, from the first to the last.
struct FlowRows::Walk : sqlite3_vtab_cursor {
  const FlowRows* rows = nullptr;
  std::size_t at = 0;
};

// What SQLite calls.
struct FlowRows::Module : sqlite3_vtab {
  const FlowRows* rows = nullptr;

  static int Connect(sqlite3* database, void* rows, int /*count*/, const char* const* /*words*/,
                     sqlite3_vtab** table, char** /*error*/) {
    auto made = std::make_unique<Module>();
    made->rows = static_cast<const FlowRows*>(rows);
    *table = made.release();
    const std::string sql = fmt::format("CREATE TABLE x ({})", fmt::join(kFlowColumnNames, ", "));
    return sqlite3_declare_vtab(database, sql.c_str());
  }
  static int Disconnect(sqlite3_vtab* table) {
    delete static_cast<Module*>(table);
    return SQLITE_OK;
  }
  static int BestIndex(sqlite3_vtab* /*table*/, sqlite3_index_info* /*info*/) { return SQLITE_OK; }

  static int Open(sqlite3_vtab* table, sqlite3_vtab_cursor** cursor) {
    auto walk = std::make_unique<Walk>();
    walk->rows = static_cast<Module*>(table)->rows;
    *cursor = walk.release();
    return SQLITE_OK;
  }
  static int Close(sqlite3_vtab_cursor* cursor) {
    delete static_cast<Walk*>(cursor);
    return SQLITE_OK;
  }
  static int Filter(sqlite3_vtab_cursor* cursor, int /*index*/, const char* /*text*/, int /*count*/,
                    sqlite3_value** /*values*/) {
    static_cast<Walk*>(cursor)->at = 0;
    return SQLITE_OK;
  }
  static int Next(sqlite3_vtab_cursor* cursor) {
    ++static_cast<Walk*>(cursor)->at;
    return SQLITE_OK;
  }
  static int IsAtEnd(sqlite3_vtab_cursor* cursor) {
    const auto& walk = *static_cast<Walk*>(cursor);
    return static_cast<int>(walk.at >= walk.rows->count_);
  }
  static int Column(sqlite3_vtab_cursor* cursor, sqlite3_context* result, int column) {
    const auto& walk = *static_cast<Walk*>(cursor);
    const Cell& cell = walk.rows->rows_[walk.at][static_cast<std::size_t>(column)];
    if (cell.kind_ == Cell::kNull) return SQLITE_OK;
    if (cell.kind_ == Cell::kNumber) {
      sqlite3_result_int64(result, cell.number_);
    } else {
      sqlite3_result_blob(result, cell.bytes_, cell.kind_, SQLITE_STATIC);
    }
    return SQLITE_OK;
  }
  static int RowId(sqlite3_vtab_cursor* cursor, sqlite3_int64* row) {
    *row = static_cast<sqlite3_int64>(static_cast<Walk*>(cursor)->at);
    return SQLITE_OK;
  }

  // Without xCreate it is a table in every database that knows the module.
  static constexpr sqlite3_module kCalls = [] {
    sqlite3_module calls{};
    calls.xConnect = Connect;
    calls.xBestIndex = BestIndex;
    calls.xDisconnect = Disconnect;
    calls.xOpen = Open;
    calls.xClose = Close;
    calls.xFilter = Filter;
    calls.xNext = Next;
    calls.xEof = IsAtEnd;
    calls.xColumn = Column;
    calls.xRowid = RowId;
    return calls;
  }();
};

FlowRows::FlowRows(Database* database) : rows_(kMostRows) {
  if (sqlite3_create_module(database->get(), "waiting_flows", &Module::kCalls, this) != SQLITE_OK) {
    throw HostError(
        fmt::format("database {}: {}", database->path(), sqlite3_errmsg(database->get())));
  }
  const std::string names = fmt::format("{}", fmt::join(kFlowColumnNames, ", "));
  insert_ = database->Prepare(
      fmt::format("INSERT INTO flows ({0}) SELECT {0} FROM waiting_flows", names));
}

void FlowRows::Write() {
  if (count_ > 0) insert_.Run();
  count_ = 0;
}

}  // namespace flow::host
