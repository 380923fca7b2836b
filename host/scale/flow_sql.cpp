// SPDX-License-Identifier: Apache-2.0
#include "host/scale/flow_sql.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "host/ask/filter_sql.h"
#include "host/ask/flow_scan.h"
#include "host/ask/whole_flows.h"
#include "host/scale/clickhouse_client.h"
#include "host/scale/row_binary.h"

namespace flow::host {
namespace {

// An address of nobody, as the table has it.
constexpr std::string_view kNoAddress = "toFixedString('', 16)";
// Addresses of IPv4 lie between these.
constexpr std::string_view kIsIpv4 =
    "{} BETWEEN toFixedString(unhex('00000000000000000000FFFF00000000'), 16) AND "
    "toFixedString(unhex('00000000000000000000FFFFFFFFFFFF'), 16)";

struct FieldSql {
  FilterField field;
  std::string_view source;
  std::string_view destination;
};
// Zero, which is what the table has where something is not known, is nobody's value.
constexpr FieldSql kRowFields[] = {
    {FilterField::kAddress, "{src}", "{dst}"},
    {FilterField::kPort, "{sport}", "{dport}"},
    {FilterField::kAs, "nullIf({src_as}, 0)", "nullIf({dst_as}, 0)"},
    {FilterField::kMac, "nullIf({src_mac}, toFixedString('', 6))",
     "nullIf({dst_mac}, toFixedString('', 6))"},
    {FilterField::kInterface, "nullIf({in_if}, 0)", "nullIf({out_if}, 0)"},
    {FilterField::kExporter, "nullIf(exporter, toFixedString('', 16))", ""},
    {FilterField::kNextHop, "nullIf(next_hop, toFixedString('', 16))", ""},
    {FilterField::kBgpNextHop, "nullIf(bgp_next_hop, toFixedString('', 16))", ""},
    {FilterField::kProtocol, "proto", ""},
    {FilterField::kFamily,
     "if({src} BETWEEN toFixedString(unhex('00000000000000000000FFFF00000000'), 16) AND "
     "toFixedString(unhex('00000000000000000000FFFFFFFFFFFF'), 16), 4, 6)",
     ""},
    {FilterField::kVrf, "nullIf(vrf, '')", ""},
    {FilterField::kApplication, "nullIf(app, '')", ""},
    {FilterField::kUser, "nullIf(user, '')", ""},
    {FilterField::kTag, "nullIf(tag, '')", ""},
    {FilterField::kBytes, "{bytes}", ""},
    {FilterField::kPackets, "{packets}", ""},
    {FilterField::kDuration, "(last_ms - first_ms)", ""},
    {FilterField::kBitRate, "({bytes} * 8000.0 / greatest(last_ms - first_ms, 1))", ""},
    {FilterField::kPacketRate, "({packets} * 1000.0 / greatest(last_ms - first_ms, 1))", ""},
};
constexpr FieldSql kWholeFields[] = {
    {FilterField::kBytes, "w_bytes", ""},
    {FilterField::kPackets, "w_packets", ""},
    {FilterField::kDuration, "(w_last - w_first)", ""},
    {FilterField::kBitRate, "(w_bytes * 8000.0 / greatest(w_last - w_first, 1))", ""},
    {FilterField::kPacketRate, "(w_packets * 1000.0 / greatest(w_last - w_first, 1))", ""},
};

SqlBlob BlobOf(const IpAddress& address) {
  std::string bytes;
  RowBinary(&bytes).Address(address.bytes());
  return {bytes.begin(), bytes.end()};
}

class ServerDialect final : public FlowDialect {
 public:
  explicit ServerDialect(std::span<const FieldSql> fields) : fields_(fields) {}

  [[nodiscard]] Field Of(FilterField field) const override {
    const auto row = std::ranges::find(fields_, field, &FieldSql::field);
    return {row->source, row->destination};
  }

  void PutAddresses(FilterField /*field*/, std::string_view column, const AddressRange& range,
                    FilterSql* sql) const override {
    if (range.first == range.last)
      return sql->Put(fmt::format("{} = ?", column), BlobOf(range.first));
    sql->Put(fmt::format("({} BETWEEN ?", column), BlobOf(range.first));
    sql->Put(" AND ?", BlobOf(range.last));
    // A wide network of IPv6 has all of IPv4 within.
    const bool is_ipv4 = range.first.family() == Family::kIpv4;
    sql->text += is_ipv4 ? ")" : fmt::format(" AND NOT ({}))", fmt::format(kIsIpv4, column));
  }

  void PutText(std::string_view column, const std::string& text, FilterSql* sql) const override {
    sql->Put(fmt::format("{} = ?", column), text);
  }

 private:
  std::span<const FieldSql> fields_;
};

std::string FilterFor(const Expression& filter, FlowView view) {
  const FilterSql sql = ToSql(filter, ServerDialect(kRowFields));
  return WithValues(ColumnsFor(sql.text, view), sql.values);
}

bool IsEmpty(const Expression& filter) {
  return filter.kind != Expression::Kind::kCondition && filter.parts.empty();
}

bool IsAtLeast(const Condition& condition) {
  const bool is_sum = condition.field == FilterField::kBytes ||
                      condition.field == FilterField::kPackets ||
                      condition.field == FilterField::kDuration;
  return is_sum && (condition.comparison == Comparison::kMore ||
                    condition.comparison == Comparison::kAtLeast);
}

// What all parts between two ends have together where one of their flows passes: no flow has more
// than all of them. Empty where that says nothing.
Expression OfAllParts(const Expression& whole) {
  if (whole.kind == Expression::Kind::kCondition) {
    return IsAtLeast(whole.condition) ? whole : Expression();
  }
  Expression all;
  all.kind = whole.kind;
  for (const Expression& part : whole.parts) {
    Expression of_part = OfAllParts(part);
    if (!IsEmpty(of_part)) all.parts.push_back(std::move(of_part));
  }
  const bool lacks_some = all.parts.size() < whole.parts.size();
  const bool says_nothing =
      whole.kind == Expression::Kind::kNot || (whole.kind == Expression::Kind::kOr && lacks_some);
  return says_nothing ? Expression() : all;
}

std::string WholeSql(const Expression& expression) {
  if (IsEmpty(expression)) return "";
  const FilterSql sql = ToSql(expression, ServerDialect(kWholeFields));
  return WithValues(sql.text, sql.values);
}

// Records are told for both directions together, as the files of a store have them.
std::string ColumnOf(std::string_view name, FlowView view) {
  if (name != "{records}" || view == FlowView::kBoth) return ColumnsFor(name, view);
  if (view == FlowView::kReverse) {
    return "if(bytes != 0 OR packets != 0, intDiv(records, 2), records)";
  }
  return "if(bytes_rev != 0 OR packets_rev != 0, records - intDiv(records, 2), records)";
}

bool IsBinary(FieldForm form) {
  return form == FieldForm::kAddress || form == FieldForm::kExporter || form == FieldForm::kMac ||
         form == FieldForm::kText;
}

// The value that a key has first, taken off it.
std::string TakeLiteral(const FlowField& field, std::string_view* key) {
  if (!IsBinary(field.form)) return std::to_string(TakeKeyNumber(key).value_or(0));
  const std::string_view bytes = TakeKeyBytes(key);
  if (field.form == FieldForm::kText) return SqlText(bytes);
  if (bytes.empty())
    return field.form == FieldForm::kMac ? "toFixedString('', 6)" : std::string(kNoAddress);
  SqlBlob blob(bytes.begin(), bytes.end());
  if (field.form != FieldForm::kMac) {
    std::string address;
    RowBinary(&address).Address(blob);
    blob.assign(address.begin(), address.end());
  }
  return SqlLiteral(blob);
}

std::string SumOf(std::string_view value, bool once) {
  return once ? fmt::format("sumIf({}, far = 0)", value) : fmt::format("sum({})", value);
}

}  // namespace

std::string SqlLiteral(const SqlValue& value) {
  if (const auto* const number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  if (const auto* const text = std::get_if<std::string>(&value)) return SqlText(*text);
  std::string hex;
  const auto& bytes = std::get<SqlBlob>(value);
  for (const std::uint8_t byte : bytes) hex += fmt::format("{:02X}", byte);
  return fmt::format("toFixedString(unhex('{}'), {})", hex, bytes.size());
}

std::string WithValues(std::string_view sql, const SqlValues& values) {
  std::string text;
  std::size_t next = 0;
  for (const char c : sql) {
    if (c == '?' && next < values.size()) {
      text += SqlLiteral(values[next++]);
    } else {
      text += c;
    }
  }
  return text;
}

FlowSql::FlowSql(const Table& table, const FlowSelection& selection)
    : table_(table),
      span_(selection.span),
      fields_(selection.fields),
      has_directions_(HasDirections(selection.filter) || HasDirections(selection.fields)),
      has_either_(std::ranges::any_of(
          fields_, [](const FlowField* field) { return field->end == FieldEnd::kEither; })) {
  const SplitFilter split = SplitByAmounts(selection.filter);
  if (!IsEmpty(split.rows)) {
    forward_ = FilterFor(split.rows, has_directions_ ? FlowView::kForward : FlowView::kBoth);
    reverse_ = FilterFor(split.rows, FlowView::kReverse);
  }
  whole_ = WholeSql(split.whole);
  all_parts_ = WholeSql(OfAllParts(split.whole));
}

std::string FlowSql::Seen(std::string_view name) const {
  if (!has_directions_) return ColumnOf(name, FlowView::kBoth);
  const std::string forward = ColumnOf(name, FlowView::kForward);
  const std::string reverse = ColumnOf(name, FlowView::kReverse);
  return forward == reverse ? forward : fmt::format("if(rev, {}, {})", reverse, forward);
}

std::string FlowSql::Group(const FlowField& field) const {
  const std::string source = Seen(fmt::format("{{{}}}", field.source));
  const std::string destination = Seen(fmt::format("{{{}}}", field.destination));
  switch (field.end) {
    case FieldEnd::kSource:
      return source;
    case FieldEnd::kDestination:
      return destination;
    case FieldEnd::kEither:
      return fmt::format("if(far, {}, {})", destination, source);
    default:
      break;
  }
  const std::string column(field.source);
  if (field.form != FieldForm::kText) return column;
  return fmt::format("substring({}, 1, {})", column, kLongestKeyText);
}

std::string FlowSql::GroupsShown() const {
  std::string shown;
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    shown += fmt::format(fmt::runtime(IsBinary(fields_[i]->form) ? "hex(g{}), " : "g{}, "), i);
  }
  return shown;
}

std::string FlowSql::GroupsNamed() const {
  std::string named;
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    named += fmt::format("{}{} AS g{}", i == 0 ? "" : ", ", Group(*fields_[i]), i);
  }
  return named;
}

// Keys have the lengths of texts and addresses in front, and nothing where they are not known.
std::string FlowSql::GroupsInOrder() const {
  std::string order;
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    const std::string group = fmt::format("g{}", i);
    const FieldForm form = fields_[i]->form;
    if (form == FieldForm::kText) order += fmt::format(", length({})", group);
    if (form == FieldForm::kAddress || form == FieldForm::kExporter) {
      const std::string nobody = fmt::format("{} = {}", group, kNoAddress);
      order += fmt::format(", multiIf({}, 0, {}, 1, 2)",
                           fields_[i]->end == FieldEnd::kNone ? nobody : "0",
                           fmt::format(kIsIpv4, group));
    }
    order += ", " + group;
  }
  return order;
}

std::string FlowSql::GroupsTuple() const {
  std::string tuple;
  for (std::size_t i = 0; i < fields_.size(); ++i)
    tuple += fmt::format("{}g{}", i == 0 ? "(" : ", ", i);
  return tuple + ')';
}

std::string FlowSql::KeyList(const std::vector<std::string>& keys) const {
  std::string list;
  for (std::string_view key : keys) {
    list += list.empty() ? "(" : ", (";
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      list += (i == 0 ? "" : ", ") + TakeLiteral(*fields_[i], &key);
    }
    list += ')';
  }
  return list;
}

std::string FlowSql::Sum(std::string_view amount, bool once) const {
  return SumOf(Seen(fmt::format("{{{}}}", amount)), once && has_either_);
}

// The far end counts where it is another one.
std::string FlowSql::FarRows() const {
  std::string rows = " AND (far = 0";
  for (const FlowField* const field : fields_) {
    if (field->end != FieldEnd::kEither) continue;
    rows += fmt::format(" OR {} != {}", field->source, field->destination);
  }
  return rows + ')';
}

std::string FlowSql::AllRows(bool with_ends) const {
  const char* views = "";
  if (has_directions_) views = " ARRAY JOIN [0, 1] AS rev";
  if (with_ends && has_either_) {
    views = has_directions_ ? " ARRAY JOIN [0, 0, 1, 1] AS rev, [0, 1, 0, 1] AS far"
                            : " ARRAY JOIN [0, 1] AS far";
  }
  std::string rows = fmt::format(" FROM {}{} PREWHERE bucket >= {} AND bucket < {}", table_.name,
                                 views, span_.from / kMinuteSeconds * kMinuteSeconds, span_.to);
  if (!forward_.empty()) {
    rows +=
        has_directions_ ? fmt::format(" AND ({} OR {})", forward_, reverse_) : " AND " + forward_;
  }
  rows += " WHERE 1";
  if (has_directions_) {
    rows += fmt::format(" AND ({} != 0 OR {} != 0)", Seen("{bytes}"), Seen("{packets}"));
    if (!forward_.empty()) rows += fmt::format(" AND if(rev, {}, {})", reverse_, forward_);
  }
  return with_ends && has_either_ ? rows + FarRows() : rows;
}

std::string FlowSql::Rows() const {
  if (whole_.empty()) return AllRows(true);
  return fmt::format(
      "{} AND (bucket, cityHash64(collector, run), block, row, {}) {}IN (SELECT part.2, part.3, "
      "part.4, part.5, part.6 FROM (SELECT arrayJoin(arraySlice(parts, w_begin, w_end - w_begin + "
      "1)) AS part FROM ({}) WHERE {}))",
      AllRows(true), has_directions_ ? "rev" : "0", table_.is_spread ? "GLOBAL " : "",
      JoinedParts(), whole_);
}

// Which end is a row's source may differ from part to part, where nobody asks for it.
std::string FlowSql::Ends() const {
  const std::string source =
      fmt::format("cityHash64({}, {}, {})", Seen("{src}"), Seen("{sport}"), Seen("{in_if}"));
  const std::string destination =
      fmt::format("cityHash64({}, {}, {})", Seen("{dst}"), Seen("{dport}"), Seen("{out_if}"));
  const char* const ends = has_directions_
                               ? "cityHash64({0}, {1}, proto, exporter)"
                               : "cityHash64(least({0}, {1}), greatest({0}, {1}), proto, exporter)";
  return fmt::format(fmt::runtime(ends), source, destination);
}

// Where much is asked for, few ends have that; their sums take less room than parts do.
std::string FlowSql::MuchAlone() const {
  if (all_parts_.empty()) return "";
  return fmt::format(
      " AND {0} {1}IN (SELECT ends FROM (SELECT {0} AS ends, sum({2}) AS w_bytes, sum({3}) AS "
      "w_packets, min(first_ms) AS w_first, max(least(greatest(last_ms, first_ms), first_ms + "
      "4294967295)) AS w_last{4} GROUP BY "
      "ends) WHERE {5})",
      Ends(), table_.is_spread ? "GLOBAL " : "", Seen("{bytes}"), Seen("{packets}"), AllRows(false),
      all_parts_);
}

// Parts are of one flow where the ends, protocol and exporter are the same, and no silence is too
// long. In the order of their beginnings, part i begins a flow when all in front of it have long
// ended, which is when the (i - 1)th of all ends is long past.
std::string FlowSql::JoinedParts() const {
  const std::string parts = fmt::format(
      "SELECT arraySort(groupArray((first_ms, bucket, cityHash64(collector, run), block, row, {}, "
      "least(greatest(last_ms, first_ms), first_ms + 4294967295), {}, {}, {}))) AS parts{}{} GROUP "
      "BY {}",
      has_directions_ ? "rev" : "0", Seen("{bytes}"), Seen("{packets}"), Seen("{records}"),
      AllRows(false), MuchAlone(), Ends());
  const std::string arrays = fmt::format(
      "SELECT parts, arrayMap(p -> p.1, parts) AS firsts, arraySort(arrayMap(p -> p.7, parts)) AS "
      "lasts, arrayCumSum(arrayMap(p -> p.8, parts)) AS bytes_to, arrayCumSum(arrayMap(p -> p.9, "
      "parts)) AS packets_to, arrayCumSum(arrayMap(p -> p.10, parts)) AS records_to, "
      "arrayFilter((i, first, last) -> i = 1 OR first > last + {}, arrayEnumerate(firsts), firsts, "
      "arrayPushFront(arrayPopBack(lasts), toInt64(0))) AS begins, arrayPushBack(arrayMap(i -> i - "
      "1, arrayPopFront(begins)), toInt64(length(firsts))) AS ends FROM ({})",
      kLongestSilenceMs, parts);
  return fmt::format(
      "SELECT parts, w_begin, w_end, firsts[w_begin] AS w_first, lasts[w_end] AS w_last, "
      "bytes_to[w_end] - bytes_to[w_begin - 1] AS w_bytes, packets_to[w_end] - packets_to[w_begin "
      "- 1] AS w_packets, records_to[w_end] - records_to[w_begin - 1] AS w_records FROM ({}) "
      "ARRAY JOIN begins AS w_begin, ends AS w_end",
      arrays);
}

std::string FlowSql::WholeFlows() const {
  return fmt::format(
      " FROM (SELECT w_first, w_last, w_bytes, w_packets, w_records, parts[w_begin] AS part, "
      "part.2 "
      "AS w_bucket, part.3 AS w_sending, part.4 AS w_block, part.5 AS w_row, part.6 AS w_rev FROM "
      "({})) WHERE {}",
      JoinedParts(), whole_.empty() ? "1" : whole_);
}

}  // namespace flow::host
