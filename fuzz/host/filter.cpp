// SPDX-License-Identifier: Apache-2.0
// What questions say in words: a filter, and on the lines behind it the start and the end of a span
// and what to compare it with.

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/host/promise.h"
#include "host/ask/filter.h"
#include "host/ask/filter_sql.h"
#include "host/ask/flow_scan.h"
#include "host/ask/times.h"
#include "host/base/error.h"
#include "host/store/schema.h"

namespace flow::fuzz {
namespace {

using host::FilterSql;
using host::FlowView;

class Database {
 public:
  Database() {
    sqlite3_open(":memory:", &database_);
    std::string columns;
    for (const std::string_view name : host::kFlowColumnNames) {
      columns += (columns.empty() ? "" : ", ") + std::string(name);
    }
    const std::string tables =
        "CREATE TABLE exporters (id, address, text);"
        "CREATE TABLE texts (id, text);"
        "CREATE TABLE flows (" +
        columns + ");";
    Demand(sqlite3_exec(database_, tables.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
           "the tables can be made");
  }

  // How many values the text has places for; it must be SQL.
  [[nodiscard]] std::size_t PlacesIn(const std::string& condition) const {
    sqlite3_stmt* statement = nullptr;
    const std::string text = "SELECT 1 FROM flows WHERE " + condition;
    const int status = sqlite3_prepare_v2(database_, text.c_str(), -1, &statement, nullptr);
    Demand(status == SQLITE_OK, "a filter becomes SQL");
    const int places = sqlite3_bind_parameter_count(statement);
    sqlite3_finalize(statement);
    return static_cast<std::size_t>(places);
  }

 private:
  sqlite3* database_ = nullptr;
};

void CheckFilter(std::string_view text) {
  static const Database database;
  try {
    const FilterSql sql = ToSql(host::ParseFilter(text));
    for (const FlowView view : {FlowView::kBoth, FlowView::kForward, FlowView::kReverse}) {
      Demand(database.PlacesIn(ColumnsFor(sql.text, view)) == sql.values.size(),
             "every place of the SQL has a value");
    }
  } catch (const host::FilterError& error) {
    // What is missing has a place of one column behind the text.
    const auto [offset, length] = error.place();
    Demand(offset <= text.size() && length <= text.size() - offset + 1,
           "what is wrong is part of the filter, or stands behind it");
  }
}

void CheckTimes(const host::SpanWords& words, const std::string& against) {
  constexpr std::int64_t kNow = 1'795'564'800;
  const host::Zone zone(true);
  try {
    const host::TimeSpan span = ResolveSpan(words, 3600, kNow, zone);
    Demand(span.from < span.to, "a span ends after its start");
    Demand(!SpanText(span, zone).empty(), "a span has a text");
    const host::TimeSpan other = ResolveAgainst(against, span, kNow, zone);
    Demand(other.Seconds() == span.Seconds(), "spans that are compared have one length");
  } catch (const host::UsageError&) {
    // No time: the user is told so.
  }
}

}  // namespace
}  // namespace flow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::array<std::string, 4> lines;
  for (std::string& line : lines) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  flow::fuzz::CheckFilter(lines[0]);
  flow::fuzz::CheckTimes({lines[1], lines[2]}, lines[3]);
  return 0;
}
