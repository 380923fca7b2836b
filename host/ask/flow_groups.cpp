// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flow_groups.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <utility>

#include "host/ask/in_threads.h"
#include "host/ask/whole_flows.h"
#include "host/engine/key_bytes.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

// The columns of a row in front of those of fields.
enum Place : std::size_t { kBytes, kPackets, kRecords, kFirst, kLast, kMinute, kFields };
const std::vector<std::string>& Columns() {
  static const auto& columns =
      *new std::vector<std::string>{"{bytes}", "{packets}", "{records}", "first", "last", "minute"};
  return columns;
}

FlowAmounts& MutableSums(std::uint64_t* values) { return *reinterpret_cast<FlowAmounts*>(values); }

class Grouper : public FlowTaker {
 public:
  Grouper(const std::vector<const FlowField*>& fields, const TimeSpan& span, std::int64_t step)
      : keys_(fields), from_(span.from), step_(step) {}

  void Take(const FlowRow& row) override {
    const auto number = [&row](std::size_t column) {
      return static_cast<std::uint64_t>(row.Integer(column));
    };
    const auto hour_ms = static_cast<std::uint64_t>(row.file().hour()) * 1000;
    const FlowAmounts sums{number(kBytes), number(kPackets), number(kRecords),
                           hour_ms + number(kFirst), hour_ms + number(kLast)};
    AddFlows(sums, &total_);
    keys_.ForEach(row, kFields,
                  [&](std::string_view key) { Add(step_ == 0 ? key : Stepped(key, row), sums); });
  }

  FlowTables& Finish() {
    const std::size_t first = added_ > kAhead ? added_ - kAhead : 0;
    for (std::size_t i = first; i < added_; ++i) Count(&waiting_[i % kAhead]);
    added_ = 0;
    return tables_;
  }
  [[nodiscard]] const FlowAmounts& total() const { return total_; }

 private:
  std::string_view Stepped(std::string_view key, const FlowRow& row) {
    const std::int64_t time = row.file().hour() + row.Integer(kMinute) * kMinuteSeconds;
    const std::int64_t number = (time - from_) / step_;
    stepped_.assign(key);
    stepped_.append(reinterpret_cast<const char*>(&number), sizeof(number));
    return stepped_;
  }

  // A key on its way: its place in memory is brought near while others are counted.
  struct Waiting {
    KeyTable* table = nullptr;
    std::string key;
    std::uint32_t hash = 0;
    std::uint32_t row = 0;
    FlowAmounts sums{};
  };
  static constexpr std::size_t kAhead = 16;

  void Add(std::string_view key, const FlowAmounts& sums) {
    Waiting& waiting = waiting_[added_ % kAhead];
    if (added_ >= kAhead) Count(&waiting);
    waiting.key.assign(key);
    waiting.hash = HashKey(key);
    waiting.table = &tables_.Of(waiting.hash);
    waiting.row = 0;
    waiting.sums = sums;
    waiting.table->PrefetchSlot(waiting.hash);
    ++added_;
    if (added_ <= kAhead / 2) return;
    Waiting& half = waiting_[(added_ - kAhead / 2) % kAhead];
    half.row = half.table->PrefetchRow(half.hash);
  }

  void Count(Waiting* waiting) {
    KeyTable& table = *waiting->table;
    std::uint64_t* sums = table.UpdateLikely(waiting->row, waiting->key);
    if (sums == nullptr) sums = table.FindOrAdd(waiting->key, waiting->hash);
    AddFlows(waiting->sums, &MutableSums(sums));
  }

  FlowKeys keys_;
  std::int64_t from_;
  std::int64_t step_;
  FlowTables tables_;
  std::array<Waiting, kAhead> waiting_;
  std::size_t added_ = 0;
  FlowAmounts total_{};
  std::string stepped_;
};

// Table by table, in several threads.
void Merge(const std::vector<FlowTables*>& parts, FlowTables* into) {
  std::atomic<std::size_t> next = 0;
  InThreads(parts.size(), [&](std::size_t) {
    for (std::size_t at = next++; at < into->tables().size(); at = next++) {
      KeyTable& table = into->tables()[at];
      for (FlowTables* const part : parts) {
        if (table.size() == 0) {
          std::swap(table, part->tables()[at]);
          continue;
        }
        table.Absorb(std::move(part->tables()[at]),
                     [](std::uint64_t* sums, const std::uint64_t* more) {
                       AddFlows(FlowTables::Sums(more), &MutableSums(sums));
                     });
      }
    }
  });
}

}  // namespace

const FlowAmounts* FlowTables::Find(std::string_view key) const {
  const std::uint64_t* const values = tables_[HashKey(key) >> kShift].Find(key);
  return values == nullptr ? nullptr : &Sums(values);
}

std::size_t FlowTables::size() const {
  std::size_t size = 0;
  for (const KeyTable& table : tables_) size += table.size();
  return size;
}

FlowGroups GroupFlows(const std::string& directory, const Expression& filter, const TimeSpan& span,
                      const std::vector<const FlowField*>& fields, std::int64_t step) {
  ScanQuestion question{filter, span, HasDirections(filter) || HasDirections(fields), Columns()};
  for (const FlowField* const field : fields) AddColumns(*field, &question.columns);
  std::vector<std::unique_ptr<Grouper>> groupers;
  std::vector<FlowTaker*> takers;
  for (std::size_t i = 0; i < ScanThreads(); ++i) {
    groupers.push_back(std::make_unique<Grouper>(fields, span, step));
    takers.push_back(groupers.back().get());
  }
  FlowGroups groups;
  groups.scan = ScanFlows(directory, question, takers);
  std::vector<FlowTables*> parts;
  for (const auto& grouper : groupers) {
    if (grouper->total().first != 0) AddFlows(grouper->total(), &groups.total);
    parts.push_back(&grouper->Finish());
  }
  Merge(parts, &groups.table);
  return groups;
}

std::int64_t StepOf(std::string_view key) {
  std::int64_t step = 0;
  std::memcpy(&step, key.data(), sizeof(step));
  return step;
}

}  // namespace flow::host
