#include "host/ask/flow_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <tuple>
#include <utility>

#include "host/ask/stored_flows.h"

namespace flow::host {
namespace {

// Where a flow stands in the order and in the store. Equal ones come in the order of the store.
struct Place {
  std::int64_t rank;  // the largest is the first
  std::int64_t hour;
  std::int64_t row;
  bool is_reverse;

  [[nodiscard]] bool IsBefore(const Place& other) const {
    return std::tuple(-rank, hour, row, is_reverse) <
           std::tuple(-other.rank, other.hour, other.row, other.is_reverse);
  }
};
constexpr auto kIsBefore = [](const Place& a, const Place& b) { return a.IsBefore(b); };

// Sums of all rows, and the places of the first: the rows themselves are read afterwards.
class Picker : public FlowTaker {
 public:
  Picker(FlowOrder order, std::size_t top) : order_(order), top_(top) {}

  void Take(const FlowRow& row) override {
    const auto number = [&row](std::size_t column) {
      return static_cast<std::uint64_t>(row.Integer(column));
    };
    const auto hour_ms = static_cast<std::uint64_t>(row.file().hour()) * 1000;
    const FlowSums sums{number(0), number(1), number(2), hour_ms + number(3), hour_ms + number(4)};
    AddFlows(sums, &total_);
    ++rows_;
    const Place place{RankOf(sums, order_), row.file().hour(), row.Integer(5), row.is_reverse()};
    if (places_.size() == top_ && (top_ == 0 || !place.IsBefore(places_.front()))) return;
    places_.push_back(place);
    std::ranges::push_heap(places_, kIsBefore);
    if (places_.size() <= top_) return;
    std::ranges::pop_heap(places_, kIsBefore);
    places_.pop_back();
  }

  [[nodiscard]] const std::vector<Place>& places() const { return places_; }
  [[nodiscard]] const FlowSums& total() const { return total_; }
  [[nodiscard]] std::uint64_t rows() const { return rows_; }

 private:
  FlowOrder order_;
  std::size_t top_;
  std::vector<Place> places_;  // a heap, the last of the order in front
  FlowSums total_{};
  std::uint64_t rows_ = 0;
};

ListedFlow ReadFlow(StoredFlows* file, const Place& place, bool has_directions) {
  std::vector<std::string> columns{"{bytes}", "{packets}", "{records}", "first", "last"};
  for (const FlowField* const field : ListedFields()) AddColumns(*field, &columns);
  FlowView view = FlowView::kBoth;
  if (has_directions) view = place.is_reverse ? FlowView::kReverse : FlowView::kForward;
  Statement found = file->database().Prepare(ColumnsFor(
      fmt::format("SELECT {} FROM flows WHERE rowid = ?", fmt::join(columns, ", ")), view));
  found.Bind(1, place.row).Step();
  std::vector<int> places(columns.size());
  std::iota(places.begin(), places.end(), 0);
  const FlowRow row(*file, found, places, place.is_reverse);
  const std::int64_t hour_ms = file->hour() * 1000;
  ListedFlow flow{hour_ms + row.Integer(3), hour_ms + row.Integer(4), row.Integer(0),
                  row.Integer(1),           row.Integer(2),           {}};
  std::string key;
  std::size_t column = 5;
  for (const FlowField* const field : ListedFields()) PutField(*field, row, column++, &key);
  flow.fields = FieldTexts(ListedFields(), key);
  return flow;
}

}  // namespace

const std::vector<const FlowField*>& ListedFields() {
  static const auto& fields =
      *new std::vector<const FlowField*>(ParseFields("proto,src,sport,dst,dport,exporter,in,out"));
  return fields;
}

FlowList ListFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                   FlowOrder order, std::size_t top) {
  const bool has_directions = HasDirections(filter);
  std::vector<std::unique_ptr<Picker>> pickers;
  std::vector<FlowTaker*> takers;
  for (std::size_t i = 0; i < ScanThreads(); ++i) {
    pickers.push_back(std::make_unique<Picker>(order, top));
    takers.push_back(pickers.back().get());
  }
  FlowList list;
  list.scan = ScanFlows(directory,
                        {filter,
                         span,
                         has_directions,
                         {"{bytes}", "{packets}", "{records}", "first", "last", "rowid"}},
                        takers);
  std::vector<Place> places;
  for (const auto& picker : pickers) {
    places.insert(places.end(), picker->places().begin(), picker->places().end());
    if (picker->rows() > 0) AddFlows(picker->total(), &list.total);
    list.rows += picker->rows();
  }
  std::ranges::sort(places, kIsBefore);
  places.resize(std::min(places.size(), top));
  std::map<std::int64_t, std::unique_ptr<StoredFlows>> files;
  for (const Place& place : places) {
    auto& file = files[place.hour];
    if (!file) file = std::make_unique<StoredFlows>(directory, place.hour);
    list.flows.push_back(ReadFlow(file.get(), place, has_directions));
  }
  return list;
}

}  // namespace flow::host
