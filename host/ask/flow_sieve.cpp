// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_sieve.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include "host/ask/flow_hash.h"
#include "host/ask/in_threads.h"
#include "host/ask/whole_flows.h"
#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

// Up to here doubles, in which filters compare, are exact; and sums of amounts that are cut off
// here do not overflow.
constexpr std::int64_t kLargest = std::int64_t{1} << 53;
// Reading rows one by one takes so many times as long as reading all.
constexpr std::uint64_t kOneByOne = 4;

std::uint64_t LeastOf(const Condition& condition) {
  switch (condition.comparison) {
    case Comparison::kIs:
    case Comparison::kMore:
    case Comparison::kAtLeast:
      break;
    default:
      return 0;
  }
  std::int64_t least = kLargest;
  for (const FilterValue& value : condition.values) {
    least = std::min(least, std::get<NumberRange>(value).first);
  }
  return static_cast<std::uint64_t>(std::max<std::int64_t>(least, 0));
}

// What went between two ends, by a hash of both: others may share a sum, which is then too
// large, never too small.
class EndSums {
 public:
  EndSums(const LeastAmount& amount, std::uint64_t most_rows)
      : is_packets_(amount.is_packets),
        unit_(std::max<std::uint64_t>(amount.least / kUnits, 1)),
        enough_(static_cast<std::uint32_t>(amount.least / unit_)),
        most_rows_(most_rows),
        sums_(kSums) {}

  // Which rows they are is remembered by all threads together, as far as there is room.
  void Remember(std::uint64_t rows) { rows_ += rows; }
  [[nodiscard]] bool IsTooMuch() const { return rows_ > most_rows_; }
  [[nodiscard]] std::uint64_t rows() const { return rows_; }
  [[nodiscard]] bool is_packets() const { return is_packets_; }

  void Add(std::uint32_t ends, std::uint64_t amount) {
    std::atomic<std::uint32_t>& sum = sums_[ends % kSums];
    if (sum.load(std::memory_order_relaxed) >= enough_) return;
    const std::uint64_t units = amount / unit_ + 1;  // rounded up
    sum.fetch_add(static_cast<std::uint32_t>(std::min<std::uint64_t>(units, enough_)),
                  std::memory_order_relaxed);
  }
  [[nodiscard]] bool HasEnough(std::uint32_t ends) const {
    return sums_[ends % kSums].load(std::memory_order_relaxed) >= enough_;
  }

 private:
  static constexpr std::size_t kSums = std::size_t{1} << 23;
  static constexpr std::uint64_t kUnits = 1 << 20;  // or more, up to twice as many, are enough

  bool is_packets_;
  std::uint64_t unit_;
  std::uint32_t enough_;  // units, which are not more than the amount
  std::uint64_t most_rows_;
  std::atomic<std::uint64_t> rows_ = 0;
  std::vector<std::atomic<std::uint32_t>> sums_;
};

struct SummedRow {
  std::uint32_t row;
  std::uint32_t ends;
};

enum Place : std::size_t {
  kBytes,
  kPackets,
  kRow,
  kSource,
  kDestination,
  kSourcePort,
  kDestinationPort,
};
// Columns that nobody looks at take time: where ways are not told apart one amount is enough.
std::vector<std::string> Columns(bool is_packets, bool has_directions) {
  const std::string amount = is_packets ? "{packets}" : "{bytes}";
  return {has_directions ? "{bytes}" : amount,
          has_directions ? "{packets}" : amount,
          "rowid",
          "src",
          "dst",
          "sport",
          "dport"};
}

class Adder : public FlowTaker {
 public:
  explicit Adder(EndSums* sums) : sums_(*sums), amount_(sums->is_packets() ? kPackets : kBytes) {}

  void Take(const FlowRow& row) override {
    const auto ends = static_cast<std::uint32_t>(EndOf(row, kSource, kSourcePort) +
                                                 EndOf(row, kDestination, kDestinationPort));
    if (row.file().hour() != hour_) {
      hour_ = row.file().hour();
      rows_ = &hours_[hour_];
    }
    sums_.Add(ends, static_cast<std::uint64_t>(row.Integer(amount_)));
    rows_->push_back({static_cast<std::uint32_t>(row.Integer(kRow)), ends});
    if (rows_->size() % kStep == 1) sums_.Remember(kStep);
  }
  [[nodiscard]] bool IsDone() const override { return sums_.IsTooMuch(); }

  [[nodiscard]] RowsOfHours& chosen() { return chosen_; }
  // Choose comes when the sums are complete.
  void Choose() {
    for (auto& [hour, rows] : hours_) {
      std::vector<std::uint32_t>& numbers = chosen_[hour];
      for (const SummedRow& row : rows) {
        if (sums_.HasEnough(row.ends)) numbers.push_back(row.row);
      }
      rows = {};
    }
  }

 private:
  // Now and then, since it is all threads' matter.
  static constexpr std::size_t kStep = 4096;

  static std::uint64_t EndOf(const FlowRow& row, Place address, Place port) {
    return HashAddress(row.Bytes(address), static_cast<std::uint64_t>(row.Integer(port)));
  }

  EndSums& sums_;
  Place amount_;
  std::int64_t hour_ = -1;
  std::vector<SummedRow>* rows_ = nullptr;  // of the hour
  std::map<std::int64_t, std::vector<SummedRow>> hours_;
  RowsOfHours chosen_;
};

}  // namespace

LeastAmount LeastOf(const Expression& filter) {
  LeastAmount largest;
  const auto take = [&largest](const LeastAmount& amount) {
    const bool is_same = amount.is_packets == largest.is_packets;
    if (largest.least == 0 || (is_same && amount.least > largest.least)) largest = amount;
  };
  if (filter.kind == Expression::Kind::kAnd) {
    for (const Expression& part : filter.parts) take(LeastOf(part));
  } else if (filter.kind == Expression::Kind::kCondition) {
    const FilterField field = filter.condition.field;
    if (field == FilterField::kBytes) take({false, LeastOf(filter.condition)});
    if (field == FilterField::kPackets) take({true, LeastOf(filter.condition)});
  }
  return largest;
}

std::optional<RowsOfHours> SiftRows(const std::string& directory, const LeastAmount& amount,
                                    const Expression& filter, const TimeSpan& span,
                                    bool has_directions, std::size_t threads) {
  EndSums sums(amount, Shares().joined_parts * sizeof(FlowPart) / sizeof(SummedRow));
  std::vector<std::unique_ptr<Adder>> adders;
  std::vector<FlowTaker*> takers;
  for (std::size_t i = 0; i < threads; ++i) {
    adders.push_back(std::make_unique<Adder>(&sums));
    takers.push_back(adders.back().get());
  }
  ScanRows(directory, {filter, span, has_directions, Columns(amount.is_packets, has_directions)},
           takers);
  if (sums.IsTooMuch()) return std::nullopt;
  InThreads(threads, [&adders](std::size_t thread) { adders[thread]->Choose(); });
  RowsOfHours chosen;
  for (const auto& adder : adders) chosen.merge(adder->chosen());
  std::uint64_t count = 0;
  for (const auto& [hour, rows] : chosen) count += rows.size();
  if (count > sums.rows() / kOneByOne) return std::nullopt;
  return chosen;
}

}  // namespace flow::host
