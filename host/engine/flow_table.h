// SPDX-License-Identifier: Apache-2.0
// Flows by their keys, in few bytes each.
//
// A row is a packed key and 40 bytes, which hold all that most flows have. What only some have,
// such as AS numbers for a store, stands beside the rows; what fits into neither, such as 4 GB and
// more, makes a flow a wide one, all of which stands beside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>
#include <utility>

#include "host/engine/flow_totals.h"
#include "host/engine/key_table.h"
#include "host/engine/packed_session.h"

namespace flow::host {

class FlowTable {
 public:
  FlowTable() : rows_(kRowWords) {}
  FlowTable(FlowTable&&) = default;
  FlowTable& operator=(FlowTable&&) = default;

  // Merge adds a part of a flow. MergePacked takes its key as PackSession makes it, and AddPart
  // the values of a row that was found.
  void Merge(std::string_view key, const FlowTotals& part);
  void MergePacked(std::string_view key, const FlowTotals& part) {
    AddPart(rows_.FindOrAdd(key), part);
  }
  void AddPart(std::uint64_t* values, const FlowTotals& part);

  // A row of another table with a packed key, on its way into this one as reports show it.
  struct ShownRow {
    std::uint64_t values[5];
    ShownKey shown;
    std::uint32_t hash;
    char key[kPackedMost];  // that it is shown by

    void Set(std::string_view packed, const std::uint64_t* of_row);
    [[nodiscard]] std::string_view Key() const { return {key, shown.size}; }
  };
  // MergeShown adds one. False where that asks for all that the flow has, or more than a narrow
  // row: then nothing was added but perhaps an empty flow.
  bool MergeShown(const ShownRow& row, bool have_ends);

  [[nodiscard]] std::optional<FlowTotals> Find(std::string_view key) const;

  // ForEach calls visit(key, const FlowTotals&) for every flow, in the order in which they were
  // added; ForEachPacked has the keys as they are kept.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    SessionText text;
    ForEachPacked([&](std::string_view key, const FlowTotals& flow) { visit(text.Of(key), flow); });
  }
  template <class Visit>
  void ForEachPacked(Visit&& visit) const {
    rows_.ForEach(
        [&](std::string_view key, const std::uint64_t* values) { visit(key, Whole(values)); });
  }

  // Change calls change(FlowTotals*) for every flow.
  template <class Function>
  void Change(Function&& change) {
    rows_.ForEach([&](std::string_view, const std::uint64_t* values) {
      FlowTotals flow = Whole(values);
      change(&flow);
      Replace(const_cast<std::uint64_t*>(values), flow);
    });
  }

  // ForgetEnds has no flow be one that was said to have ended.
  void ForgetEnds();

  // Absorb takes over another table's flows.
  void Absorb(FlowTable&& other);

  // Rows to look for ahead; they belong to packed keys.
  KeyTable& rows() { return rows_; }
  [[nodiscard]] const KeyTable& rows() const { return rows_; }
  [[nodiscard]] FlowTotals Whole(const std::uint64_t* values) const;

  [[nodiscard]] std::size_t size() const { return rows_.size(); }
  [[nodiscard]] std::size_t Memory() const {
    return rows_.Memory() + beside_.size() * sizeof(Beside) + wide_.size() * sizeof(FlowTotals);
  }

 private:
  struct Narrow;
  // What few flows have, or those of a run with a store.
  struct Beside {
    std::uint32_t as_numbers[2];
    std::uint32_t next_hops[2];
    std::uint32_t vrf;
    std::uint32_t app;
    std::uint32_t user;
    std::uint32_t text;
    std::uint32_t duration_ms;
    std::uint8_t macs[2][6];
  };
  static constexpr std::size_t kRowWords = 5;

  struct Plain;
  static bool AddPlain(Narrow* row, const Plain& part);
  bool AddNarrow(Narrow* row, const FlowTotals& part);
  [[gnu::noinline]] void AddWide(Narrow* row, const FlowTotals& part);
  void AddBeside(Narrow* row, const FlowTotals& part);
  void Replace(std::uint64_t* values, const FlowTotals& flow);

  KeyTable rows_;
  std::deque<Beside> beside_;
  std::deque<FlowTotals> wide_;
};

}  // namespace flow::host
