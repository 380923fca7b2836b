// SPDX-License-Identifier: Apache-2.0
#include "host/ask/stored_flows.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <variant>

#include "host/store/schema.h"

namespace flow::host {
namespace {

// Binds from a place on; gives the next one.
int BindAll(const SqlValues& values, int place, Statement* statement) {
  for (const auto& value : values) {
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
      statement->Bind(place++, *number);
    } else if (const auto* const text = std::get_if<std::string>(&value)) {
      statement->Bind(place++, *text);
    } else {
      statement->Bind(place++, std::span<const std::uint8_t>(std::get<SqlBlob>(value)));
    }
  }
  return place;
}

// The minutes of the hour that lie in a span: from the first to before the second.
std::pair<std::int64_t, std::int64_t> MinutesOf(std::int64_t hour, const TimeSpan& span) {
  const std::int64_t from = std::clamp<std::int64_t>(span.from - hour, 0, kHourSeconds);
  const std::int64_t to = std::clamp<std::int64_t>(span.to - hour, 0, kHourSeconds);
  return {from / kMinuteSeconds, (to + kMinuteSeconds - 1) / kMinuteSeconds};
}

}  // namespace

StoredFlows::StoredFlows(const std::string& directory, std::int64_t hour)
    : hour_(hour), database_(Database::ToRead(FlowFilePath(directory, hour))) {
  // Read once from end to end: mapped, no page is copied.
  database_.Execute("PRAGMA mmap_size=8589934592");
  exporters_ = Read("SELECT id, address FROM exporters");
  texts_ = Read("SELECT id, text FROM texts");
}

StoredFlows::Texts StoredFlows::Read(const char* sql) {
  Texts texts;
  Statement rows = database_.Prepare(sql);
  while (rows.Step()) {
    const auto bytes = rows.Bytes(1);
    texts[rows.Integer(0)].assign(bytes.begin(), bytes.end());
  }
  return texts;
}

std::string_view StoredFlows::Exporter(std::int64_t number) const {
  const auto found = exporters_.find(number);
  return found == exporters_.end() ? std::string_view() : std::string_view(found->second);
}

std::string_view StoredFlows::TextOf(std::int64_t number) const {
  const auto found = texts_.find(number);
  return found == texts_.end() ? std::string_view() : std::string_view(found->second);
}

Statement StoredFlows::Rows(const std::string& select, const SqlValues& given,
                            const FilterSql& where, const TimeSpan& span) {
  const auto [from, to] = MinutesOf(hour_, span);
  const bool is_part = from > 0 || to < kHourSeconds / kMinuteSeconds;
  std::string sql = fmt::format("SELECT {} FROM flows WHERE {}", select, where.text);
  if (is_part) {
    sql +=
        " AND minute >= ? AND minute < ? AND rowid BETWEEN"
        " (SELECT min(first_row) FROM minutes WHERE minute >= ?) AND"
        " (SELECT max(last_row) FROM minutes WHERE minute < ?)";
  }
  Statement rows = database_.Prepare(sql);
  int place = BindAll(where.values, BindAll(given, 1, &rows), &rows);
  for (const std::int64_t minute : {from, to, from, to}) {
    if (is_part) rows.Bind(place++, minute);
  }
  return rows;
}

FlowsNotKept StoredFlows::NotKeptIn(const TimeSpan& span) {
  const auto [from, to] = MinutesOf(hour_, span);
  Statement sums = database_.Prepare(
      "SELECT sum(not_kept), sum(not_kept_bytes), sum(not_kept_packets) FROM minutes "
      "WHERE minute >= ? AND minute < ?");
  sums.Bind(1, from).Bind(2, to);
  if (!sums.Step()) return {};
  return {sums.Integer(0), sums.Integer(1), sums.Integer(2)};
}

}  // namespace flow::host
