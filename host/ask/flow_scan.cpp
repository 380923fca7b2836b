// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_scan.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "host/ask/in_threads.h"
#include "host/base/error.h"
#include "host/store/schema.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

struct EndColumn {
  std::string_view name;
  std::string_view reverse;
};
constexpr EndColumn kEndColumns[] = {
    {"src", "dst"},         {"dst", "src"},         {"sport", "dport"},   {"dport", "sport"},
    {"in_if", "out_if"},    {"out_if", "in_if"},    {"src_as", "dst_as"}, {"dst_as", "src_as"},
    {"src_mac", "dst_mac"}, {"dst_mac", "src_mac"},
};

struct Amount {
  std::string_view name;
  std::string_view both;
  std::string_view forward;
  std::string_view reverse;
};
// Records of the exporter are told for both directions together; where both have traffic, each has
// half of them, which is right for exporters that report each once.
constexpr Amount kAmounts[] = {
    {"bytes", "(bytes + bytes_rev)", "bytes", "bytes_rev"},
    {"packets", "(packets + packets_rev)", "packets", "packets_rev"},
    {"records", "records",
     "(CASE WHEN bytes_rev OR packets_rev THEN records - records / 2 ELSE records END)",
     "(CASE WHEN bytes OR packets THEN records / 2 ELSE records END)"},
};

std::string ColumnFor(std::string_view name, FlowView view) {
  const bool is_reverse = view == FlowView::kReverse;
  for (const EndColumn& column : kEndColumns) {
    if (column.name == name) return std::string(is_reverse ? column.reverse : column.name);
  }
  for (const Amount& amount : kAmounts) {
    if (amount.name != name) continue;
    if (view == FlowView::kBoth) return std::string(amount.both);
    return std::string(is_reverse ? amount.reverse : amount.forward);
  }
  return std::string(name);
}

// The query of a file: both directions of a row come at once, where they are told apart.
class Query {
 public:
  explicit Query(const ScanQuestion& question) {
    if (!question.has_directions) {
      AddView(question.columns, FlowView::kBoth);
      where_ = WhereFor(question.filter, FlowView::kBoth);
      return;
    }
    AddView(question.columns, FlowView::kForward);
    AddView(question.columns, FlowView::kReverse);
    where_ = {"1", {}};
    const bool has_filter =
        question.filter.kind == Expression::Kind::kCondition || !question.filter.parts.empty();
    if (has_filter) AddFilter(question.filter);
  }

  // SQLite calls with each row's values: a third less than what it takes to step from row to row
  // and to ask for every column.
  void Read(StoredFlows* file, const TimeSpan& span, const std::vector<std::uint32_t>* chosen,
            FlowTaker* taker) const {
    if (taker->IsDone()) return;
    Reading reading{*this, *file, *taker};
    sqlite3_create_function_v2(
        file->database().get(), "take_row", -1, SQLITE_UTF8, &reading, nullptr, TakeRow,
        [](sqlite3_context*) {}, nullptr);
    FilterSql where = where_;
    if (chosen != nullptr) {
      where.text += " AND rowid IN (SELECT value FROM json_each(?))";
      where.values.emplace_back(fmt::format("[{}]", fmt::join(*chosen, ",")));
    }
    Statement rows = file->Rows(fmt::format("take_row({})", select_), given_, where, span);
    try {
      rows.Step();
    } catch (...) {
      if (reading.error) std::rethrow_exception(reading.error);
      if (!taker->IsDone()) throw;
    }
  }

 private:
  struct Reading {
    const Query& query;
    const StoredFlows& file;
    FlowTaker& taker;
    std::exception_ptr error = nullptr;
  };

  static void TakeRow(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
    auto& reading = *static_cast<Reading*>(sqlite3_user_data(context));
    try {
      reading.query.Take(reading, values);
    } catch (...) {
      reading.error = std::current_exception();
    }
    if (reading.error || reading.taker.IsDone()) sqlite3_result_error(context, "enough", -1);
  }

  void Take(const Reading& reading, sqlite3_value* const* values) const {
    for (const View& view : views_) {
      const FlowRow row(reading.file, values, view.places, view.view == FlowView::kReverse);
      if (view.view != FlowView::kBoth && row.Integer(0) == 0 && row.Integer(1) == 0) continue;
      if (view.passes >= 0 && sqlite3_value_int64(values[view.passes]) == 0) continue;
      reading.taker.Take(row);
    }
  }

  struct View {
    FlowView view;
    std::vector<int> places;  // of the question's columns
    int passes = -1;          // the column that says whether the filter lets it pass
  };

  static FilterSql WhereFor(const Expression& filter, FlowView view) {
    FilterSql where = ToSql(filter);
    where.text = ColumnsFor(where.text, view);
    return where;
  }

  // A column that both directions show stands in the query once.
  int PlaceOf(const std::string& column) {
    const auto found = std::ranges::find(columns_, column);
    const auto place = static_cast<int>(found - columns_.begin());
    if (found == columns_.end()) {
      columns_.push_back(column);
      select_ += (select_.empty() ? "" : ", ") + column;
    }
    return place;
  }

  void AddView(const std::vector<std::string>& columns, FlowView view) {
    View added{view, {}, -1};
    for (const std::string& column : columns) {
      added.places.push_back(PlaceOf(ColumnsFor(column, view)));
    }
    views_.push_back(std::move(added));
  }

  void AddFilter(const Expression& filter) {
    const FilterSql forward = WhereFor(filter, FlowView::kForward);
    const FilterSql reverse = WhereFor(filter, FlowView::kReverse);
    for (View& view : views_) {
      const FilterSql& sql = view.view == FlowView::kForward ? forward : reverse;
      view.passes = static_cast<int>(columns_.size());
      columns_.push_back(sql.text);
      select_ += ", " + sql.text;
      given_.insert(given_.end(), sql.values.begin(), sql.values.end());
    }
    where_.text = fmt::format("(({}) OR ({}))", forward.text, reverse.text);
    where_.values = given_;
  }

  std::string select_;
  std::vector<std::string> columns_;  // in it
  SqlValues given_;                   // in it as well
  FilterSql where_;
  std::vector<View> views_;
};

class Scan {
 public:
  Scan(const std::string& directory, const ScanQuestion& question)
      : directory_(directory), question_(question), query_(question) {
    std::set<std::int64_t> known;
    for (const FlowFileEntry& file : ListFlowFiles(directory)) known.insert(file.hour);
    for (std::int64_t hour = question.span.from / kHourSeconds * kHourSeconds;
         hour < question.span.to; hour += kHourSeconds) {
      if (known.contains(hour)) {
        hours_.push_back(hour);
      } else {
        missing_.insert(hour);
      }
    }
  }

  void Run(FlowTaker* taker) noexcept {
    try {
      for (std::size_t at = next_++; at < hours_.size(); at = next_++) ReadFile(hours_[at], taker);
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!error_) error_ = std::current_exception();
    }
  }

  ScanResult Finish() {
    if (error_) std::rethrow_exception(error_);
    for (const std::int64_t hour : missing_) AddMissing(hour, question_.span, &result_);
    return std::move(result_);
  }

 private:
  // Null where all rows are asked for.
  [[nodiscard]] const std::vector<std::uint32_t>* ChosenIn(std::int64_t hour) const {
    static const std::vector<std::uint32_t> none;
    if (question_.rows == nullptr) return nullptr;
    const auto found = question_.rows->find(hour);
    return found == question_.rows->end() ? &none : &found->second;
  }

  // None where it was deleted since the files were listed, as those are that grow old.
  std::optional<StoredFlows> Open(std::int64_t hour) {
    try {
      return StoredFlows(directory_, hour);
    } catch (const HostError&) {
      if (std::filesystem::exists(FlowFilePath(directory_, hour))) throw;
    }
    const std::lock_guard lock(mutex_);
    missing_.insert(hour);
    return std::nullopt;
  }

  void ReadFile(std::int64_t hour, FlowTaker* taker) {
    std::optional<StoredFlows> file = Open(hour);
    if (!file) return;
    const auto* const chosen = ChosenIn(hour);
    if (chosen == nullptr || !chosen->empty()) query_.Read(&*file, question_.span, chosen, taker);
    const FlowsNotKept not_kept = file->NotKeptIn(question_.span);
    const std::lock_guard lock(mutex_);
    result_.not_kept.flows += not_kept.flows;
    result_.not_kept.bytes += not_kept.bytes;
    result_.not_kept.packets += not_kept.packets;
  }

  const std::string& directory_;
  const ScanQuestion& question_;
  Query query_;
  std::vector<std::int64_t> hours_;
  std::atomic<std::size_t> next_ = 0;
  std::mutex mutex_;  // of what follows
  std::set<std::int64_t> missing_;
  ScanResult result_;
  std::exception_ptr error_;
};

}  // namespace

bool HasDirections(const Expression& expression) {
  if (expression.kind != Expression::Kind::kCondition) {
    return std::ranges::any_of(expression.parts, HasDirections);
  }
  const Side side = expression.condition.side;
  return side == Side::kSource || side == Side::kDestination;
}

std::string ColumnsFor(std::string_view text, FlowView view) {
  std::string columns;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t end = text[at] == '{' ? text.find('}', at) : std::string_view::npos;
    if (end == std::string_view::npos) {
      columns.push_back(text[at]);
    } else {
      columns += ColumnFor(text.substr(at + 1, end - at - 1), view);
      at = end;
    }
  }
  return columns;
}

std::size_t ScanThreads() {
  constexpr std::size_t kMost = 16;
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMost);
}

ScanResult ScanRows(const std::string& directory, const ScanQuestion& question,
                    const std::vector<FlowTaker*>& takers) {
  Scan scan(directory, question);
  InThreads(takers.size(), [&](std::size_t thread) { scan.Run(takers[thread]); });
  return scan.Finish();
}

}  // namespace flow::host
