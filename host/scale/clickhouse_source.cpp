// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_source.h"

#include <fmt/format.h>

#include <charconv>
#include <utility>
#include <vector>

#include "host/ask/stored_counters.h"
#include "host/base/error.h"
#include "host/scale/clickhouse_schema.h"
#include "host/scale/earlier_runs.h"

namespace flow::host {
namespace {

template <class Number>
Number ParsedAs(std::string_view text) {
  Number number{};
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

class TabRows final : public SourceRows {
 public:
  explicit TabRows(std::string answer) : answer_(std::move(answer)), rest_(answer_) {}

  bool Step() override {
    const bool has_row = TakeTabRow(&rest_, &fields_);
    texts_.assign(fields_.size(), "");
    for (std::size_t i = 0; has_row && i < fields_.size(); ++i) texts_[i] = TabText(fields_[i]);
    return has_row;
  }
  [[nodiscard]] std::int64_t Integer(int column) const override {
    return ParsedAs<std::int64_t>(Field(column));
  }
  [[nodiscard]] double Real(int column) const override { return ParsedAs<double>(Field(column)); }
  [[nodiscard]] std::string_view Text(int column) const override {
    return IsNull(column) ? std::string_view() : texts_[static_cast<std::size_t>(column)];
  }
  [[nodiscard]] bool IsNull(int column) const override { return Field(column) == "\\N"; }

 private:
  [[nodiscard]] std::string_view Field(int column) const {
    const auto at = static_cast<std::size_t>(column);
    return at < fields_.size() ? fields_[at] : "\\N";
  }

  std::string answer_;
  std::string_view rest_;
  TabRow fields_;
  std::vector<std::string> texts_;
};

}  // namespace

ClickHouseSource::ClickHouseSource(const ClickHouseOptions& options) : client_(ServerOf(options)) {
  flow_table_.is_spread = CheckTables(&client_).contains(std::string(kSpreadTable));
  flow_table_.name = flow_table_.is_spread ? kSpreadTable : "raw_flows";
}

std::unique_ptr<SourceRows> ClickHouseSource::Ask(const std::string& sql,
                                                  const SourceValues& values) {
  return std::make_unique<TabRows>(client_.Ask(WithValues(sql, values) + " FORMAT TabSeparated"));
}

std::string ClickHouseSource::Table(const std::string& name, const TimeSpan& span) {
  return fmt::format("({})", Reads(SpanOfView(name, span.from, span.to), flow_table_.is_spread));
}

std::string ClickHouseSource::GroupTable(const StoredGroup& group, const Tier& tier,
                                         const TimeSpan& span) {
  std::vector<std::string> columns;
  for (const StoredGroup::Column& column : group.columns) columns.push_back(column.name);
  return fmt::format("({})", Reads(SpanOfCounters(group.id, columns, tier.name, span.from, span.to),
                                   flow_table_.is_spread));
}

}  // namespace flow::host
