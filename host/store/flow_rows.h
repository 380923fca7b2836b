// SPDX-License-Identifier: Apache-2.0
// Rows of flows that wait to be written, as a table that SQLite reads: one statement takes all of
// them, which costs two thirds of one a row.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "host/store/database.h"
#include "host/store/schema.h"

namespace flow::host {

class FlowRows {
 public:
  // Of a database, in which they are the table `waiting_flows` as long as it is open.
  explicit FlowRows(Database* database);
  FlowRows(const FlowRows&) = delete;
  FlowRows& operator=(const FlowRows&) = delete;

  // A value that is set anew in each row; null until then.
  class Cell {
   public:
    void Clear() { kind_ = kNull; }
    void Set(std::int64_t number) {
      kind_ = kNumber;
      number_ = number;
    }
    // At most 16 bytes.
    void Set(std::span<const std::uint8_t> bytes) {
      kind_ = static_cast<std::uint8_t>(bytes.size());
      std::memcpy(bytes_, bytes.data(), bytes.size());
    }

   private:
    friend class FlowRows;
    static constexpr std::uint8_t kNull = 0;
    static constexpr std::uint8_t kNumber = 0xFF;

    union {
      std::int64_t number_;
      std::uint8_t bytes_[16];
    };
    std::uint8_t kind_ = kNull;  // or how many bytes
  };
  using Row = std::array<Cell, std::size(kFlowColumnNames)>;

  // Add gives a row to fill, all of it; IsFull asks for Write before the next one.
  Row& Add() { return rows_[count_++]; }
  [[nodiscard]] bool IsFull() const { return count_ == rows_.size(); }

  // Write puts them into the table of flows; HostError when that fails. Clear lets them go.
  void Write();
  void Clear() { count_ = 0; }

 private:
  struct Walk;
  struct Module;

  std::vector<Row> rows_;
  std::size_t count_ = 0;
  Statement insert_;
};

}  // namespace flow::host
