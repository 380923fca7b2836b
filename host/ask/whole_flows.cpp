// SPDX-License-Identifier: Apache-2.0
#include "host/ask/whole_flows.h"

#include <absl/hash/hash.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/ask/in_threads.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// Less than a gigabyte of them.
constexpr std::uint64_t kMostParts = 16'000'000;
constexpr std::int64_t kLongestSilenceMs = 300'000;
// Parts are sorted in pieces that the caches hold.
constexpr std::size_t kPieces = 256;

bool IsAmount(FilterField field) { return field >= FilterField::kBytes; }
static_assert(FilterField::kBytes < FilterField::kPackets &&
              FilterField::kPackets < FilterField::kDuration &&
              FilterField::kDuration < FilterField::kBitRate &&
              FilterField::kBitRate < FilterField::kPacketRate);

bool IsOfAmounts(const Expression& expression) {
  if (expression.kind == Expression::Kind::kCondition) return IsAmount(expression.condition.field);
  return !expression.parts.empty() && std::ranges::all_of(expression.parts, IsOfAmounts);
}

bool IsEmpty(const Expression& expression) {
  return expression.kind == Expression::Kind::kAnd && expression.parts.empty();
}

void Split(const Expression& expression, SplitFilter* split) {
  if (IsOfAmounts(expression)) {
    split->whole.parts.push_back(expression);
  } else if (expression.kind == Expression::Kind::kAnd) {
    for (const Expression& part : expression.parts) Split(part, split);
  } else {
    split->rows.parts.push_back(expression);
  }
}

double AmountOf(FilterField field, const FlowAmounts& flow) {
  const auto bytes = static_cast<double>(flow.bytes);
  const auto packets = static_cast<double>(flow.packets);
  const auto ms = static_cast<double>(flow.last - flow.first);
  switch (field) {
    case FilterField::kBytes:
      return bytes;
    case FilterField::kPackets:
      return packets;
    case FilterField::kBitRate:
      return bytes * 8000 / std::max(ms, 1.0);
    case FilterField::kPacketRate:
      return packets * 1000 / std::max(ms, 1.0);
    default:
      return ms;
  }
}

bool Holds(const Condition& condition, const FlowAmounts& flow) {
  const double amount = AmountOf(condition.field, flow);
  const auto is_in = [amount](const FilterValue& value) {
    const auto& range = std::get<NumberRange>(value);
    return amount >= static_cast<double>(range.first) && amount <= static_cast<double>(range.last);
  };
  const auto number = static_cast<double>(std::get<NumberRange>(condition.values.front()).first);
  switch (condition.comparison) {
    case Comparison::kIs:
      return std::ranges::any_of(condition.values, is_in);
    case Comparison::kIsNot:
      return std::ranges::none_of(condition.values, is_in);
    case Comparison::kLess:
      return amount < number;
    case Comparison::kAtMost:
      return amount <= number;
    case Comparison::kMore:
      return amount > number;
    case Comparison::kAtLeast:
      return amount >= number;
  }
  return false;
}

bool Holds(const Expression& expression, const FlowAmounts& flow) {
  const auto holds = [&flow](const Expression& part) { return Holds(part, flow); };
  switch (expression.kind) {
    case Expression::Kind::kCondition:
      return Holds(expression.condition, flow);
    case Expression::Kind::kNot:
      return std::ranges::none_of(expression.parts, holds);
    case Expression::Kind::kAnd:
      return std::ranges::all_of(expression.parts, holds);
    case Expression::Kind::kOr:
      return std::ranges::any_of(expression.parts, holds);
  }
  return false;
}

enum Place : std::size_t {
  kBytes,
  kPackets,
  kRecords,
  kFirst,
  kLast,
  kRow,
  kSource,
  kDestination,
  kSourcePort,
  kDestinationPort,
  kSourceInterface,
  kDestinationInterface,
  kProtocol,
  kExporter,
};
const std::vector<std::string>& Columns() {
  static const auto& columns = *new std::vector<std::string>{
      "{bytes}", "{packets}", "{records}", "first",   "last",     "rowid", "{src}",
      "{dst}",   "{sport}",   "{dport}",   "{in_if}", "{out_if}", "proto", "exporter"};
  return columns;
}

std::string_view AsText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Which side is a row's source may differ from part to part, where nobody asks for it.
std::uint64_t HashOf(const FlowRow& row, bool has_directions) {
  const std::uint64_t source = absl::HashOf(AsText(row.Bytes(kSource)), row.Integer(kSourcePort),
                                            row.Integer(kSourceInterface));
  const std::uint64_t destination =
      absl::HashOf(AsText(row.Bytes(kDestination)), row.Integer(kDestinationPort),
                   row.Integer(kDestinationInterface));
  const bool swaps = !has_directions && source > destination;
  return absl::HashOf(swaps ? destination : source, swaps ? source : destination,
                      row.Integer(kProtocol), row.file().Exporter(row.Integer(kExporter)));
}

class Collector : public FlowTaker {
 public:
  Collector(bool has_directions, std::atomic<std::uint64_t>* count)
      : has_directions_(has_directions), count_(*count) {}

  void Take(const FlowRow& row) override {
    // Counted by the thousand: it is all threads' number.
    constexpr std::uint64_t kStep = 1024;
    if (++taken_ % kStep == 0 && count_.fetch_add(kStep) > kMostParts) is_full_ = true;
    if (is_full_) return;
    const auto number = [&row](std::size_t column) {
      return static_cast<std::uint64_t>(row.Integer(column));
    };
    const std::int64_t duration = row.Integer(kLast) - row.Integer(kFirst);
    constexpr std::int64_t kLongest = std::numeric_limits<std::uint32_t>::max();
    FlowPart part{};
    part.flow = HashOf(row, has_directions_);
    part.bytes = number(kBytes);
    part.packets = number(kPackets);
    part.first = row.file().hour() * 1000 + row.Integer(kFirst);
    part.duration = static_cast<std::uint32_t>(std::clamp<std::int64_t>(duration, 0, kLongest));
    part.records = static_cast<std::uint32_t>(number(kRecords));
    part.hour = static_cast<std::uint32_t>(row.file().hour() / kHourSeconds);
    part.row = static_cast<std::uint32_t>(number(kRow)) & 0x7FFF'FFFF;
    part.is_reverse = row.is_reverse() ? 1 : 0;
    pieces_[part.flow % kPieces].push_back(part);
  }

  std::vector<FlowPart>& piece(std::size_t number) { return pieces_[number]; }
  [[nodiscard]] bool is_full() const { return is_full_; }

 private:
  bool has_directions_;
  std::atomic<std::uint64_t>& count_;
  std::uint64_t taken_ = 0;
  bool is_full_ = false;
  std::array<std::vector<FlowPart>, kPieces> pieces_;
};

// Goes through the pieces of all collectors.
class Joiner {
 public:
  Joiner(const std::vector<std::unique_ptr<Collector>>& collectors, const Expression& filter)
      : collectors_(collectors), filter_(filter) {}

  void Run(WholeFlowTaker* taker) {
    for (std::size_t at = next_++; at < kPieces; at = next_++) {
      std::vector<FlowPart> parts;
      for (const auto& collector : collectors_) {
        std::vector<FlowPart>& piece = collector->piece(at);
        parts.insert(parts.end(), piece.begin(), piece.end());
        piece = {};
      }
      std::ranges::sort(parts, [](const FlowPart& a, const FlowPart& b) {
        return std::tuple(a.flow, a.first, a.place()) < std::tuple(b.flow, b.first, b.place());
      });
      Join(parts, taker);
    }
  }

 private:
  void Join(std::span<const FlowPart> parts, WholeFlowTaker* taker) const {
    while (!parts.empty()) {
      FlowAmounts whole{};
      std::size_t count = 0;
      while (count < parts.size() && GoesOn(whole, parts.front(), parts[count], count)) {
        const FlowPart& part = parts[count++];
        AddFlows({part.bytes, part.packets, part.records, static_cast<std::uint64_t>(part.first),
                  static_cast<std::uint64_t>(part.last())},
                 &whole);
      }
      if (Holds(filter_, whole)) taker->Take(whole, parts.first(count));
      parts = parts.subspan(count);
    }
  }

  static bool GoesOn(const FlowAmounts& whole, const FlowPart& first, const FlowPart& part,
                     std::size_t count) {
    return count == 0 || (part.flow == first.flow &&
                          part.first <= static_cast<std::int64_t>(whole.last) + kLongestSilenceMs);
  }

  const std::vector<std::unique_ptr<Collector>>& collectors_;
  const Expression& filter_;
  std::atomic<std::size_t> next_ = 0;
};

// The rows of flows that pass.
class Chooser : public WholeFlowTaker {
 public:
  void Take(const FlowAmounts& /*whole*/, std::span<const FlowPart> parts) override {
    for (const FlowPart& part : parts) places_.push_back(part.place());
  }
  [[nodiscard]] const std::vector<RowPlace>& places() const { return places_; }

 private:
  std::vector<RowPlace> places_;
};

// Hands on the rows that were chosen; the last column is the row's number.
class ChosenRows : public FlowTaker {
 public:
  ChosenRows(FlowTaker* taker, const std::vector<RowPlace>& places, std::size_t row_column)
      : taker_(*taker), places_(places), row_column_(row_column) {}

  void Take(const FlowRow& row) override {
    const RowPlace place{static_cast<std::uint32_t>(row.file().hour() / kHourSeconds),
                         static_cast<std::uint32_t>(row.Integer(row_column_)), row.is_reverse()};
    if (std::ranges::binary_search(places_, place)) taker_.Take(row);
  }

 private:
  FlowTaker& taker_;
  const std::vector<RowPlace>& places_;
  std::size_t row_column_;
};

}  // namespace

SplitFilter SplitByAmounts(const Expression& filter) {
  SplitFilter split;
  Split(filter, &split);
  return split;
}

ScanResult JoinFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                     bool has_directions, const std::vector<WholeFlowTaker*>& takers) {
  const SplitFilter split = SplitByAmounts(filter);
  std::atomic<std::uint64_t> count = 0;
  std::vector<std::unique_ptr<Collector>> collectors;
  std::vector<FlowTaker*> rows;
  for (std::size_t i = 0; i < takers.size(); ++i) {
    collectors.push_back(std::make_unique<Collector>(has_directions, &count));
    rows.push_back(collectors.back().get());
  }
  ScanResult result = ScanRows(directory, {split.rows, span, has_directions, Columns()}, rows);
  result.rows_alone = std::ranges::any_of(collectors, &Collector::is_full);
  if (result.rows_alone) return result;
  Joiner joiner(collectors, split.whole);
  InThreads(takers.size(), [&](std::size_t thread) { joiner.Run(takers[thread]); });
  return result;
}

ScanResult ScanFlows(const std::string& directory, const ScanQuestion& question,
                     const std::vector<FlowTaker*>& takers) {
  const SplitFilter split = SplitByAmounts(question.filter);
  if (IsEmpty(split.whole)) return ScanRows(directory, question, takers);
  std::vector<std::unique_ptr<Chooser>> choosers;
  std::vector<WholeFlowTaker*> whole_takers;
  for (std::size_t i = 0; i < takers.size(); ++i) {
    choosers.push_back(std::make_unique<Chooser>());
    whole_takers.push_back(choosers.back().get());
  }
  const bool rows_alone =
      JoinFlows(directory, question.filter, question.span, question.has_directions, whole_takers)
          .rows_alone;
  if (rows_alone) {
    ScanResult result = ScanRows(directory, question, takers);
    result.rows_alone = true;
    return result;
  }
  std::vector<RowPlace> places;
  for (const auto& chooser : choosers) {
    places.insert(places.end(), chooser->places().begin(), chooser->places().end());
  }
  std::ranges::sort(places);
  ScanQuestion rows = question;
  rows.filter = split.rows;
  rows.columns.emplace_back("rowid");
  std::vector<std::unique_ptr<ChosenRows>> chosen;
  std::vector<FlowTaker*> chosen_takers;
  for (FlowTaker* const taker : takers) {
    chosen.push_back(std::make_unique<ChosenRows>(taker, places, rows.columns.size() - 1));
    chosen_takers.push_back(chosen.back().get());
  }
  return ScanRows(directory, rows, chosen_takers);
}

}  // namespace flow::host
