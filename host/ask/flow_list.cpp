// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <utility>

#include "host/ask/flow_groups.h"
#include "host/ask/stored_flows.h"
#include "host/ask/whole_flows.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// A flow, and where its first part stands.
struct Listed {
  FlowAmounts sums;
  RowPlace place;
};

// The order; equal ones come in the order of the store.
class IsBefore {
 public:
  explicit IsBefore(FlowOrder order) : order_(order) {}
  bool operator()(const Listed& a, const Listed& b) const {
    const std::int64_t rank_a = RankOf(a.sums, order_);
    const std::int64_t rank_b = RankOf(b.sums, order_);
    return rank_a != rank_b ? rank_a > rank_b : a.place < b.place;
  }

 private:
  FlowOrder order_;
};

// Sums of all flows, and the first of the order: what else there is to say of them is read
// afterwards.
class Picker : public WholeFlowTaker, public FlowTaker {
 public:
  Picker(FlowOrder order, std::size_t top) : is_before_(order), top_(top) {}

  void Take(const FlowAmounts& whole, std::span<const FlowPart> parts) override {
    Add({whole, parts.front().place()});
  }
  // Rows by themselves.
  void Take(const FlowRow& row) override {
    const auto number = [&row](std::size_t column) {
      return static_cast<std::uint64_t>(row.Integer(column));
    };
    const auto hour_ms = static_cast<std::uint64_t>(row.file().hour()) * 1000;
    Add({{number(0), number(1), number(2), hour_ms + number(3), hour_ms + number(4)},
         {static_cast<std::uint32_t>(row.file().hour() / kHourSeconds),
          static_cast<std::uint32_t>(number(5)), row.is_reverse()}});
  }

  [[nodiscard]] const std::vector<Listed>& picked() const { return picked_; }
  [[nodiscard]] const FlowAmounts& total() const { return total_; }
  [[nodiscard]] std::uint64_t count() const { return count_; }

 private:
  void Add(const Listed& flow) {
    AddFlows(flow.sums, &total_);
    ++count_;
    if (picked_.size() == top_ && (top_ == 0 || !is_before_(flow, picked_.front()))) return;
    picked_.push_back(flow);
    std::ranges::push_heap(picked_, is_before_);
    if (picked_.size() <= top_) return;
    std::ranges::pop_heap(picked_, is_before_);
    picked_.pop_back();
  }

  IsBefore is_before_;
  std::size_t top_;
  std::vector<Listed> picked_;  // a heap, the last of the order in front
  FlowAmounts total_{};
  std::uint64_t count_ = 0;
};

// The bytes, the packets and the columns of what is listed.
std::vector<std::string> ListedColumns() {
  std::vector<std::string> columns{"{bytes}", "{packets}"};
  for (const FlowField* const field : ListedFields()) AddColumns(*field, &columns);
  return columns;
}

// Reads flows of an hour by the places of their rows.
class FlowReader {
 public:
  FlowReader(const std::string& directory, std::int64_t hour, bool has_directions)
      : file_(directory, hour), places_(ListedColumns().size()) {
    std::iota(places_.begin(), places_.end(), 0);
    const std::string select =
        fmt::format("SELECT {} FROM flows WHERE rowid = ?", fmt::join(ListedColumns(), ", "));
    const auto prepare = [this, &select](FlowView view) {
      return file_.database().Prepare(ColumnsFor(select, view));
    };
    forward_ = prepare(has_directions ? FlowView::kForward : FlowView::kBoth);
    reverse_ = prepare(has_directions ? FlowView::kReverse : FlowView::kBoth);
  }

  ListedFlow Read(const Listed& listed) {
    Statement& found = listed.place.is_reverse ? reverse_ : forward_;
    found.Bind(1, std::int64_t{listed.place.row}).Step();
    std::vector<Statement::ValueCopy> copies;
    std::vector<sqlite3_value*> values;
    for (const int place : places_) {
      copies.push_back(found.Value(place));
      values.push_back(copies.back().get());
    }
    found.Step();  // to its end
    const FlowRow row(file_, values.data(), places_, listed.place.is_reverse);
    std::string key;
    std::size_t column = 2;
    for (const FlowField* const field : ListedFields()) PutField(*field, row, column++, &key);
    const auto number = [](std::uint64_t value) { return static_cast<std::int64_t>(value); };
    return {number(listed.sums.first), number(listed.sums.last),
            number(listed.sums.bytes), number(listed.sums.packets),
            number(listed.sums.flows), FieldTexts(ListedFields(), key)};
  }

 private:
  StoredFlows file_;
  std::vector<int> places_;
  Statement forward_;
  Statement reverse_;
};

}  // namespace

FlowList ListFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                   FlowOrder order, std::size_t top) {
  const bool has_directions = HasDirections(filter);
  std::vector<std::unique_ptr<Picker>> pickers;
  for (std::size_t i = 0; i < ScanThreads(); ++i) {
    pickers.push_back(std::make_unique<Picker>(order, top));
  }
  const auto as = [&pickers]<class Taker>(std::vector<Taker*> takers) {
    for (const auto& picker : pickers) takers.push_back(picker.get());
    return takers;
  };
  FlowList list;
  list.scan =
      JoinFlows(directory, filter, span, has_directions, as(std::vector<WholeFlowTaker*>()));
  if (list.scan.rows_alone) {
    const std::vector<std::string> columns{"{bytes}", "{packets}", "{records}",
                                           "first",   "last",      "rowid"};
    ScanRows(directory, {filter, span, has_directions, columns}, as(std::vector<FlowTaker*>()));
  }
  std::vector<Listed> picked;
  for (const auto& picker : pickers) {
    picked.insert(picked.end(), picker->picked().begin(), picker->picked().end());
    if (picker->count() > 0) AddFlows(picker->total(), &list.total);
    list.count += picker->count();
  }
  std::ranges::sort(picked, IsBefore(order));
  picked.resize(std::min(picked.size(), top));
  std::map<std::int64_t, FlowReader> hours;
  for (const Listed& listed : picked) {
    const std::int64_t hour = std::int64_t{listed.place.hour} * kHourSeconds;
    auto& reader = hours.try_emplace(hour, directory, hour, has_directions).first->second;
    list.flows.push_back(reader.Read(listed));
  }
  return list;
}

}  // namespace flow::host
