// SPDX-License-Identifier: Apache-2.0
#include "host/ask/whole_flows.h"

#include <absl/hash/hash.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "host/ask/flow_hash.h"
#include "host/ask/flow_sieve.h"
#include "host/ask/in_threads.h"
#include "host/base/memory_budget.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// How often files are read where there are more parts than may be held at a time.
constexpr int kMostPasses = 4;
// So many rows are looked for rather than met with when all are read.
constexpr std::size_t kFewRows = 500'000;
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

class FlowHash {
 public:
  explicit FlowHash(bool has_directions) : has_directions_(has_directions) {}

  // Which side is a row's source may differ from part to part, where nobody asks for it.
  std::uint64_t Of(const FlowRow& row) {
    const std::uint64_t source = Side(row, kSource, kSourcePort, kSourceInterface);
    const std::uint64_t destination =
        Side(row, kDestination, kDestinationPort, kDestinationInterface);
    const bool swaps = !has_directions_ && source > destination;
    const std::uint64_t sides = MixHash(swaps ? destination : source, swaps ? source : destination);
    return MixHash(sides, Exporter(row) + static_cast<std::uint64_t>(row.Integer(kProtocol)));
  }

 private:
  static std::uint64_t Side(const FlowRow& row, Place address, Place port, Place interface) {
    const auto number = [&row](Place place) {
      return static_cast<std::uint64_t>(row.Integer(place));
    };
    return HashAddress(row.Bytes(address), number(interface) << 16 | number(port));
  }

  // By its address: the number is another one in every file.
  std::uint64_t Exporter(const FlowRow& row) {
    const auto number = static_cast<std::size_t>(row.Integer(kExporter));
    constexpr std::size_t kMost = 4096;
    if (hour_ != row.file().hour()) exporters_.clear();
    hour_ = row.file().hour();
    if (number >= kMost) return absl::HashOf(row.file().Exporter(row.Integer(kExporter)));
    if (number >= exporters_.size()) exporters_.resize(number + 1);
    std::uint64_t& known = exporters_[number];
    if (known == 0) known = absl::HashOf(row.file().Exporter(row.Integer(kExporter)));
    return known;
  }

  bool has_directions_;
  std::int64_t hour_ = 0;
  std::vector<std::uint64_t> exporters_;  // of the file at hand
};

// Which parts are held, of all threads: those of a run of pieces, which gets shorter as they become
// too many.
class Holding {
 public:
  Holding() : most_(Shares().joined_parts / ++questions_) {}
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;
  ~Holding() { --questions_; }

  [[nodiscard]] std::size_t first() const { return first_; }
  [[nodiscard]] std::size_t end() const { return end_; }
  [[nodiscard]] bool Holds(std::size_t piece) const { return first_ <= piece && piece < end_; }

  // Whether it would take too many passes to hold all.
  [[nodiscard]] bool IsTooMuch() const { return end_ < kPieces / kMostPasses; }

  // Next goes on to the pieces behind; false when there are none.
  bool Next() {
    first_ = end_;
    end_ = kPieces;
    for (auto& count : counts_) count = 0;
    return first_ < kPieces;
  }
  void Add(std::size_t piece, std::uint64_t count) { counts_[piece] += count; }
  // The largest piece alone may be too much.
  void Shorten() {
    std::size_t end = first_;
    std::uint64_t sum = 0;
    while (end < end_ && (end == first_ || sum + counts_[end] <= most_)) sum += counts_[end++];
    for (std::size_t known = end_; end < known;) {
      if (end_.compare_exchange_weak(known, end)) break;
    }
  }

 private:
  // Questions that are at it share what there is.
  inline static std::atomic<std::uint64_t> questions_ = 0;

  std::uint64_t most_;
  std::size_t first_ = 0;
  std::atomic<std::size_t> end_ = kPieces;
  std::array<std::atomic<std::uint64_t>, kPieces> counts_{};
};

class Collector : public FlowTaker {
 public:
  Collector(bool has_directions, Holding* holding) : hash_(has_directions), holding_(*holding) {}

  void Take(const FlowRow& row) override {
    if (++taken_ % kStep == 0) LetMuchGo();
    const std::uint64_t flow = hash_.Of(row);
    const std::size_t piece = flow % kPieces;
    if (!holding_.Holds(piece)) return;
    const auto number = [&row](std::size_t column) {
      return static_cast<std::uint64_t>(row.Integer(column));
    };
    const std::int64_t duration = row.Integer(kLast) - row.Integer(kFirst);
    constexpr std::int64_t kLongest = std::numeric_limits<std::uint32_t>::max();
    FlowPart part{};
    part.flow = flow;
    part.bytes = number(kBytes);
    part.packets = number(kPackets);
    part.first = row.file().hour() * 1000 + row.Integer(kFirst);
    part.duration = static_cast<std::uint32_t>(std::clamp<std::int64_t>(duration, 0, kLongest));
    part.records = static_cast<std::uint32_t>(number(kRecords));
    part.hour = static_cast<std::uint32_t>(row.file().hour() / kHourSeconds);
    part.row = static_cast<std::uint32_t>(number(kRow)) & 0x7FFF'FFFF;
    part.is_reverse = row.is_reverse() ? 1 : 0;
    pieces_[piece].push_back(part);
    ++new_[piece];
  }

  [[nodiscard]] bool IsDone() const override { return holding_.IsTooMuch(); }

  // Of the pass before there may be parts that were not joined.
  void BeginPass() {
    for (auto& piece : pieces_) piece = {};
    new_ = {};
  }
  std::vector<FlowPart>& piece(std::size_t number) { return pieces_[number]; }

 private:
  // Now and then, since it is all threads' matter.
  static constexpr std::uint64_t kStep = 8192;

  void LetMuchGo() {
    for (std::size_t piece = holding_.first(); piece < holding_.end(); ++piece) {
      holding_.Add(piece, std::exchange(new_[piece], 0));
    }
    holding_.Shorten();
    for (std::size_t piece = holding_.end(); piece < kPieces; ++piece) pieces_[piece] = {};
  }

  FlowHash hash_;
  Holding& holding_;
  std::uint64_t taken_ = 0;
  std::array<std::uint32_t, kPieces> new_{};  // that the holding knows nothing of
  std::array<std::vector<FlowPart>, kPieces> pieces_;
};

// Goes through the pieces of all collectors.
class Joiner {
 public:
  Joiner(const std::vector<std::unique_ptr<Collector>>& collectors, const Expression& filter,
         const Holding& holding)
      : collectors_(collectors), filter_(filter), next_(holding.first()), end_(holding.end()) {}

  void Run(WholeFlowTaker* taker) {
    for (std::size_t at = next_++; at < end_; at = next_++) {
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
  std::atomic<std::size_t> next_;
  std::size_t end_;
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
  Holding holding;
  std::vector<std::unique_ptr<Collector>> collectors;
  std::vector<FlowTaker*> rows;
  for (std::size_t i = 0; i < takers.size(); ++i) {
    collectors.push_back(std::make_unique<Collector>(has_directions, &holding));
    rows.push_back(collectors.back().get());
  }
  const LeastAmount least = LeastOf(split.whole);
  std::optional<RowsOfHours> chosen;
  if (least.least > 0) {
    chosen = SiftRows(directory, least, split.rows, span, has_directions, takers.size());
  }
  const ScanQuestion question{split.rows, span, has_directions, Columns(),
                              chosen ? &*chosen : nullptr};
  ScanResult result;
  do {
    for (const auto& collector : collectors) collector->BeginPass();
    result = ScanRows(directory, question, rows);
    result.rows_alone = holding.IsTooMuch();
    if (result.rows_alone) return result;
    Joiner joiner(collectors, split.whole, holding);
    InThreads(takers.size(), [&](std::size_t thread) { joiner.Run(takers[thread]); });
  } while (holding.Next());
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
  RowsOfHours numbers;
  for (const RowPlace& place : places) {
    numbers[std::int64_t{place.hour} * kHourSeconds].push_back(place.row);
  }
  ScanQuestion rows = question;
  rows.filter = split.rows;
  if (places.size() <= kFewRows) rows.rows = &numbers;
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
