// SPDX-License-Identifier: Apache-2.0
#include "host/ask/filter_sql.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace flow::host {
namespace {

struct FieldSql {
  FilterField field;
  std::string_view source;
  std::string_view destination;
};
constexpr FieldSql kFields[] = {
    {FilterField::kAddress, "{src}", "{dst}"},
    {FilterField::kPort, "{sport}", "{dport}"},
    {FilterField::kAs, "{src_as}", "{dst_as}"},
    {FilterField::kMac, "{src_mac}", "{dst_mac}"},
    {FilterField::kInterface, "{in_if}", "{out_if}"},
    {FilterField::kExporter, "exporter", ""},
    {FilterField::kNextHop, "next_hop", ""},
    {FilterField::kBgpNextHop, "bgp_next_hop", ""},
    {FilterField::kProtocol, "proto", ""},
    {FilterField::kFamily, "(CASE length({src}) WHEN 4 THEN 4 ELSE 6 END)", ""},
    {FilterField::kVrf, "vrf", ""},
    {FilterField::kApplication, "app", ""},
    {FilterField::kUser, "user", ""},
    {FilterField::kTag, "tag", ""},
    {FilterField::kBytes, "{bytes}", ""},
    {FilterField::kPackets, "{packets}", ""},
    {FilterField::kDuration, "(last - first)", ""},
    // Over a millisecond at least: a flow of one packet has no length.
    {FilterField::kBitRate, "({bytes} * 8000.0 / max(last - first, 1))", ""},
    {FilterField::kPacketRate, "({packets} * 1000.0 / max(last - first, 1))", ""},
};

SqlBlob BlobOf(const IpAddress& address) {
  return {address.bytes().begin(), address.bytes().end()};
}

class StoreFiles final : public FlowDialect {
 public:
  [[nodiscard]] Field Of(FilterField field) const override {
    const auto* const row = std::ranges::find(kFields, field, &FieldSql::field);
    return {row->source, row->destination};
  }

  void PutAddresses(FilterField field, std::string_view column, const AddressRange& range,
                    FilterSql* sql) const override {
    const bool is_exporter = field == FilterField::kExporter;
    if (is_exporter) {
      sql->text += fmt::format("{} IN (SELECT id FROM exporters WHERE ", column);
      column = "address";
    }
    if (range.first == range.last) {
      sql->Put(fmt::format("{} = ?", column), BlobOf(range.first));
    } else {  // blobs of IPv4 and IPv6 lie among each other
      sql->Put(fmt::format("({} BETWEEN ?", column), BlobOf(range.first));
      sql->Put(fmt::format(" AND ? AND length({}) = {})", column, range.first.bytes().size()),
               BlobOf(range.last));
    }
    if (is_exporter) sql->text += ')';
  }

  void PutText(std::string_view column, const std::string& text, FilterSql* sql) const override {
    sql->Put(fmt::format("{} IN (SELECT id FROM texts WHERE text = ?)", column), text);
  }
};

// In the order of Comparison, its first two left out.
constexpr std::string_view kOrders[] = {"<", "<=", ">", ">="};

// Longer chains stand in parentheses of so many parts each: SQLite's trees are at most 1,000 deep,
// and every part of a chain is a level.
constexpr std::size_t kMostInARow = 64;

class Writer {
 public:
  Writer(const FlowDialect& dialect, FilterSql* sql) : dialect_(dialect), sql_(*sql) {}

  void Write(const Expression& expression) {
    switch (expression.kind) {
      case Expression::Kind::kCondition:
        return WriteCondition(expression.condition);
      case Expression::Kind::kNot:
        sql_.text += "NOT ";
        return WriteParts(expression.parts, "");
      case Expression::Kind::kAnd:
        return WriteParts(expression.parts, " AND ");
      case Expression::Kind::kOr:
        return WriteParts(expression.parts, " OR ");
    }
  }

 private:
  void WriteParts(const std::vector<Expression>& parts, std::string_view between) {
    sql_.text += parts.empty() ? "(1" : "(";
    Chain(parts, between, [this](const Expression& part) { Write(part); });
    sql_.text += ')';
  }

  template <class Part, class Write>
  void Chain(const std::vector<Part>& parts, std::string_view between, Write write) {
    const bool is_long = parts.size() > kMostInARow;
    if (is_long) sql_.text += '(';
    for (std::size_t i = 0; i < parts.size(); ++i) {
      const bool starts = is_long && i > 0 && i % kMostInARow == 0;
      if (starts) sql_.text += ')';
      if (i > 0) sql_.text += between;
      if (starts) sql_.text += '(';
      write(parts[i]);
    }
    if (is_long) sql_.text += ')';
  }

  // Of a flow with two ends, "is not" means that neither end is.
  void WriteCondition(const Condition& condition) {
    const FlowDialect::Field row = dialect_.Of(condition.field);
    const bool denies = condition.comparison == Comparison::kIsNot;
    const bool has_both = !row.destination.empty() &&
                          (condition.side == Side::kEither || condition.side == Side::kBoth);
    sql_.text += denies ? "NOT (ifnull(" : "(ifnull(";
    if (has_both) {
      WriteValues(condition, row.source);
      sql_.text += condition.side == Side::kBoth ? ", 0) AND ifnull(" : ", 0) OR ifnull(";
    }
    const bool is_source = row.destination.empty() || condition.side == Side::kSource;
    WriteValues(condition, is_source ? row.source : row.destination);
    sql_.text += ", 0))";
  }

  void WriteValues(const Condition& condition, std::string_view column) {
    Chain(condition.values, " OR ",
          [&](const FilterValue& value) { WriteValue(condition, column, value); });
  }

  void WriteValue(const Condition& condition, std::string_view column, const FilterValue& value) {
    if (const auto* const numbers = std::get_if<NumberRange>(&value)) {
      if (condition.comparison > Comparison::kIsNot) {
        const auto order = static_cast<std::size_t>(condition.comparison) - 2;
        sql_.Put(fmt::format("{} {} ?", column, kOrders[order]), numbers->first);
      } else if (numbers->first == numbers->last) {
        sql_.Put(fmt::format("{} = ?", column), numbers->first);
      } else {
        sql_.Put(fmt::format("{} BETWEEN ?", column), numbers->first);
        sql_.Put(" AND ?", numbers->last);
      }
    } else if (const auto* const addresses = std::get_if<AddressRange>(&value)) {
      dialect_.PutAddresses(condition.field, column, *addresses, &sql_);
    } else if (const auto& text = std::get<std::string>(value);
               condition.field == FilterField::kMac) {
      sql_.Put(fmt::format("{} = ?", column), SqlBlob(text.begin(), text.end()));
    } else {
      dialect_.PutText(column, text, &sql_);
    }
  }

  const FlowDialect& dialect_;
  FilterSql& sql_;
};

}  // namespace

void FilterSql::Put(std::string_view more, SqlValue value) {
  text += more;
  values.push_back(std::move(value));
}

const FlowDialect& StoreDialect() {
  static const auto& dialect = *new StoreFiles;
  return dialect;
}

FilterSql ToSql(const Expression& expression, const FlowDialect& dialect) {
  FilterSql sql;
  Writer(dialect, &sql).Write(expression);
  return sql;
}

}  // namespace flow::host
