// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_flows.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <tuple>

#include "host/ask/steps.h"
#include "host/base/error.h"
#include "host/scale/clickhouse_schema.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

using Json = nlohmann::json;

// The rows of an answer, and what stands behind them.
class Table {
 public:
  // Sums that find no room in memory go to the server's disk.
  Table(ClickHouseClient* client, const std::string& query) {
    const std::string answer = client->AskAtLength(query + " FORMAT JSONCompact");
    root_ = Json::parse(answer, nullptr, false);
    if (!root_.is_object() || !Member("data").is_array()) {
      throw HostError(
          fmt::format("ClickHouse at {} answers what is no table", client->server().Text()));
    }
  }

  [[nodiscard]] const Json& rows() const { return Member("data"); }
  // The sums of all rows, also of those that a LIMIT leaves out; and how many these are.
  [[nodiscard]] const Json& totals() const { return Member("totals"); }
  [[nodiscard]] std::size_t count() const { return Number(Member("rows_before_limit_at_least")); }

  // Large ones stand in quotes.
  static std::uint64_t Number(const Json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>();
    if (value.is_number_integer()) return static_cast<std::uint64_t>(value.get<std::int64_t>());
    if (!value.is_string()) return 0;
    const auto& text = value.get_ref<const std::string&>();
    std::int64_t negative = 0;
    std::uint64_t number = 0;
    if (text.starts_with('-')) {
      std::from_chars(text.data(), text.data() + text.size(), negative);
      return static_cast<std::uint64_t>(negative);
    }
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
  }

 private:
  // Null where there is none.
  [[nodiscard]] const Json& Member(const char* name) const {
    static const auto& none = *new Json;
    const auto found = root_.find(name);
    return found == root_.end() ? none : *found;
  }

  Json root_;
};

std::uint64_t NumberIn(const Json& row, std::size_t column) {
  return column < row.size() ? Table::Number(row[column]) : 0;
}

FlowAmounts AmountsIn(const Json& row, std::size_t column) {
  return {NumberIn(row, column), NumberIn(row, column + 1), NumberIn(row, column + 2),
          NumberIn(row, column + 3), NumberIn(row, column + 4)};
}

std::string BytesOfHex(const Json& value) {
  std::string bytes;
  if (!value.is_string()) return bytes;
  const auto& hex = value.get_ref<const std::string&>();
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    std::uint8_t byte = 0;
    std::from_chars(hex.data() + at, hex.data() + at + 2, byte, 16);
    bytes.push_back(static_cast<char>(byte));
  }
  return bytes;
}

bool IsZero(std::string_view bytes) {
  return bytes.find_first_not_of('\0') == std::string_view::npos;
}

// An address of IPv4 has four bytes; that of nobody none.
std::string_view AddressIn(std::string_view bytes, bool may_be_nobody) {
  constexpr std::string_view kMapped("\0\0\0\0\0\0\0\0\0\0\xFF\xFF", 12);
  if (may_be_nobody && IsZero(bytes)) return "";
  return bytes.starts_with(kMapped) ? bytes.substr(kMapped.size()) : bytes;
}

// Appends what the server has of a field to a key. Ports and protocols are always known.
void PutValue(const FlowField& field, const Json& value, std::string* key) {
  switch (field.form) {
    case FieldForm::kAddress:
    case FieldForm::kExporter:
      return PutKeyBytes(AddressIn(BytesOfHex(value), field.end == FieldEnd::kNone), key);
    case FieldForm::kMac: {
      const std::string bytes = BytesOfHex(value);
      return PutKeyBytes(IsZero(bytes) ? "" : bytes, key);
    }
    case FieldForm::kText:
      return PutKeyBytes(BytesOfHex(value), key);
    default: {
      const auto number = static_cast<std::uint32_t>(Table::Number(value));
      const bool is_known =
          number != 0 || field.form == FieldForm::kPort || field.form == FieldForm::kProtocol;
      return PutKeyNumber(is_known ? std::optional(number) : std::nullopt, key);
    }
  }
}

std::string KeyIn(const std::vector<const FlowField*>& fields, const Json& row, std::size_t first) {
  std::string key;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (first + i < row.size()) PutValue(*fields[i], row[first + i], &key);
  }
  return key;
}

// What stands behind ORDER BY for sums of these names.
std::string OrderBy(FlowOrder order, char sums) {
  constexpr std::string_view kOrders[] = {"{0}_bytes DESC",   "{0}_packets DESC",
                                          "{0}_records DESC", "{0}_last - {0}_first DESC",
                                          "{0}_first",        "{0}_last"};
  return fmt::format(fmt::runtime(kOrders[static_cast<std::size_t>(order)]), sums);
}

std::string_view AmountFor(FlowOrder order) {
  if (order == FlowOrder::kPackets) return "packets";
  return order == FlowOrder::kFlows ? "records" : "bytes";
}

std::string StepSql(const Steps& steps) {
  return fmt::format("least(intDiv(bucket - {}, {}), {})", steps.cover.span.from, steps.seconds,
                     steps.count - 1);
}

const std::vector<const FlowField*>& NoFields() {
  static const auto& none = *new std::vector<const FlowField*>;
  return none;
}

}  // namespace

// An hour is missing where there is nothing of it; what was let go is told by buckets.
ScanResult ClickHouseFlows::ScanOf(const TimeSpan& span) {
  const std::string when = fmt::format("bucket >= {} AND bucket < {}",
                                       span.from / kMinuteSeconds * kMinuteSeconds, span.to);
  const Table hours(&client_,
                    fmt::format("SELECT DISTINCT intDiv(bucket, {0}) * {0} FROM {1} WHERE {2}",
                                kHourSeconds, table_.name, when));
  std::set<std::int64_t> known;
  for (const Json& row : hours.rows()) known.insert(static_cast<std::int64_t>(NumberIn(row, 0)));
  ScanResult scan;
  for (std::int64_t hour = span.from / kHourSeconds * kHourSeconds; hour < span.to;
       hour += kHourSeconds) {
    if (!known.contains(hour)) AddMissing(hour, span, &scan);
  }
  const Table not_kept(
      &client_, fmt::format("SELECT sum(flows_not_kept) FROM ({}) WHERE tier = 'minute'",
                            Reads(SpanOfView("buckets", span.from, span.to), table_.is_spread)));
  if (!not_kept.rows().empty()) {
    scan.not_kept.flows = static_cast<std::int64_t>(NumberIn(not_kept.rows()[0], 0));
  }
  return scan;
}

RankedGroups ClickHouseFlows::Rank(const FlowSelection& selection, FlowOrder order, std::size_t top,
                                   const std::optional<TimeSpan>& other) {
  const FlowSql sql(table_, selection);
  std::string having;
  if (other) {
    const FlowSql then(table_, {selection.filter, *other, selection.fields});
    having = fmt::format(" HAVING {0} {1}NOT IN (SELECT {0}{2} GROUP BY {3})", sql.GroupsTuple(),
                         table_.is_spread ? "GLOBAL " : "", then.Rows(), then.GroupsNamed());
  }
  const Table table(
      &client_,
      fmt::format("SELECT {}{} AS s_bytes, {} AS s_packets, {} AS s_records, min(first_ms) AS "
                  "s_first, max(last_ms) AS s_last, {}, {}, {}{} GROUP BY {} WITH TOTALS{} ORDER "
                  "BY {}{} LIMIT {}",
                  sql.GroupsShown(), sql.Sum("bytes"), sql.Sum("packets"), sql.Sum("records"),
                  sql.Sum("bytes", true), sql.Sum("packets", true), sql.Sum("records", true),
                  sql.Rows(), sql.GroupsNamed(), having, OrderBy(order, 's'), sql.GroupsInOrder(),
                  std::max<std::size_t>(top, 1)));
  const std::size_t sums = selection.fields.size();
  RankedGroups ranked;
  for (const Json& row : table.rows()) {
    if (ranked.first.size() == top) break;
    ranked.first.push_back({KeyIn(selection.fields, row, 0), AmountsIn(row, sums)});
  }
  ranked.count = table.count();
  ranked.all = AmountsIn(table.totals(), sums);
  ranked.total = AmountsIn(table.totals(), sums + 5);
  ranked.total.first = ranked.all.first;
  ranked.total.last = ranked.all.last;
  ranked.scan = ScanOf(selection.span);
  return ranked;
}

FlowList ClickHouseFlows::List(const Expression& filter, const TimeSpan& span, FlowOrder order,
                               std::size_t top) {
  const FlowSql sql(table_, {filter, span, NoFields()});
  // Where some flows are left out, the sums of the others are made on the way.
  const bool adds_up = sql.AsksOfWhole();
  const std::string_view sum = adds_up ? "sum" : "";
  constexpr std::string_view kPlace = "w_bucket, w_sending, w_block, w_row, w_rev";
  const Table table(
      &client_,
      fmt::format(
          "SELECT {0}, {1}(w_bytes) AS s_bytes, {1}(w_packets) AS s_packets, {1}(w_records) "
          "AS s_records, {2}(w_first) AS s_first, {2}(w_last) AS s_last{3}{4} ORDER BY {5}, "
          "intDiv(w_bucket, {6}), w_sending, w_block, w_row, w_rev LIMIT {7}",
          kPlace, sum, adds_up ? "max" : "", sql.WholeFlows(),
          adds_up ? fmt::format(" GROUP BY {} WITH TOTALS", kPlace) : "", OrderBy(order, 's'),
          kHourSeconds, std::max<std::size_t>(top, 1)));
  FlowList list;
  std::vector<Place> places;
  constexpr std::size_t kSums = 5;
  for (const Json& row : table.rows()) {
    if (places.size() == top) break;
    places.push_back({NumberIn(row, 0), NumberIn(row, 1), NumberIn(row, 2), NumberIn(row, 3),
                      NumberIn(row, 4) != 0});
    const FlowAmounts sums = AmountsIn(row, kSums);
    const auto number = [](std::uint64_t value) { return static_cast<std::int64_t>(value); };
    list.flows.push_back({number(sums.first),
                          number(sums.last),
                          number(sums.bytes),
                          number(sums.packets),
                          number(sums.flows),
                          {}});
  }
  list.count = table.count();
  if (adds_up) {
    list.total = AmountsIn(table.totals(), kSums);
  } else {
    const Table all(
        &client_, fmt::format("SELECT {}, {}, {}, min(first_ms), max(last_ms){}", sql.Sum("bytes"),
                              sql.Sum("packets"), sql.Sum("records"), sql.Rows()));
    if (!all.rows().empty()) list.total = AmountsIn(all.rows()[0], 0);
  }
  ReadFields(places, &list.flows);
  list.scan = ScanOf(span);
  return list;
}

// What else there is to say of flows stands where their first parts are.
void ClickHouseFlows::ReadFields(const std::vector<Place>& places, std::vector<ListedFlow>* flows) {
  constexpr std::size_t kAtATime = 1000;
  constexpr std::size_t kColumns = 4;  // in front of those of fields
  const auto place_of = [](const Json& row) {
    return std::tuple(NumberIn(row, 0), NumberIn(row, 1), NumberIn(row, 2), NumberIn(row, 3));
  };
  for (std::size_t from = 0; from < places.size(); from += kAtATime) {
    const auto part = std::span(places).subspan(from, std::min(kAtATime, places.size() - from));
    std::string buckets;
    std::string list;
    for (const Place& place : part) {
      buckets += fmt::format("{}{}", buckets.empty() ? "" : ", ", place.bucket);
      list += fmt::format("{}({}, {}, {}, {})", list.empty() ? "" : ", ", place.bucket,
                          place.sending, place.block, place.row);
    }
    const Table table(
        &client_,
        fmt::format("SELECT bucket, cityHash64(collector, run) AS sending, block, row, proto, "
                    "hex(src), sport, hex(dst), dport, hex(exporter), in_if, out_if FROM {} WHERE "
                    "bucket IN ({}) AND (bucket, sending, block, row) IN ({})",
                    table_.name, buckets, list));
    std::map<decltype(place_of(Json())), const Json*> rows;
    for (const Json& row : table.rows()) rows.emplace(place_of(row), &row);
    for (std::size_t i = 0; i < part.size(); ++i) {
      const Place& place = part[i];
      const auto found = rows.find({place.bucket, place.sending, place.block, place.row});
      Json row = found == rows.end() ? Json::array() : *found->second;
      if (row.size() == kColumns + ListedFields().size() && place.is_reverse) {
        std::swap(row[5], row[7]);
        std::swap(row[6], row[8]);
        std::swap(row[10], row[11]);
      }
      std::string key = KeyIn(ListedFields(), row, kColumns);
      if (!key.empty()) (*flows)[from + i].fields = FieldTexts(ListedFields(), key);
    }
  }
}

std::vector<std::vector<double>> ClickHouseFlows::Lines(const FlowSelection& selection,
                                                        const Steps& steps, FlowOrder order,
                                                        const std::vector<std::string>& keys) {
  const FlowSql sql(table_, selection);
  const std::string_view amount = AmountFor(order);
  std::vector<Line> lines(keys.size() + 2, Line(steps.count));
  const Table all(&client_, fmt::format("SELECT {} AS step, {}, {}{} GROUP BY step", StepSql(steps),
                                        sql.Sum(amount), sql.Sum(amount, true), sql.Rows()));
  const auto step_of = [&](const Json& row) {
    return std::min<std::size_t>(NumberIn(row, 0), steps.count - 1);
  };
  for (const Json& row : all.rows()) {
    lines[keys.size()][step_of(row)] = static_cast<double>(NumberIn(row, 1));
    lines[keys.size() + 1][step_of(row)] = static_cast<double>(NumberIn(row, 2));
  }
  if (keys.empty()) return lines;
  absl::flat_hash_map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < keys.size(); ++i) places.emplace(keys[i], i);
  const Table some(
      &client_, fmt::format("SELECT {} AS step, {} AS s_sum, {}0{} AND {} IN ({}) GROUP BY step, "
                            "{}",
                            StepSql(steps), sql.Sum(amount), sql.GroupsShown(), sql.Rows(),
                            sql.GroupsTuple(), sql.KeyList(keys), sql.GroupsNamed()));
  for (const Json& row : some.rows()) {
    const auto place = places.find(KeyIn(selection.fields, row, 2));
    if (place == places.end()) continue;
    lines[place->second][step_of(row)] = static_cast<double>(NumberIn(row, 1));
  }
  return lines;
}

FlowSteps ClickHouseFlows::AddUpSteps(const Expression& filter, const Steps& steps) {
  const FlowSql sql(table_, {filter, steps.cover.span, NoFields()});
  FlowSteps sums{std::vector<FlowAmounts>(steps.count), {}};
  const Table table(&client_,
                    fmt::format("SELECT {} AS step, {}, {}, {}, min(first_ms), max(last_ms){} "
                                "GROUP BY step",
                                StepSql(steps), sql.Sum("bytes"), sql.Sum("packets"),
                                sql.Sum("records"), sql.Rows()));
  for (const Json& row : table.rows()) {
    sums.steps[std::min<std::size_t>(NumberIn(row, 0), steps.count - 1)] = AmountsIn(row, 1);
  }
  sums.scan = ScanOf(steps.cover.span);
  return sums;
}

}  // namespace flow::host
