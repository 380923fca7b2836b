// SPDX-License-Identifier: Apache-2.0
// What was said about keys beside their counts, as it is written.
//
// Exporters say it of as many keys as they like, so each table has so many rows and no more. Those
// go that are of no key of the hours and days; until some have gone, what is new is not written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/engine/group_info.h"
#include "host/store/database.h"

namespace flow::host {

struct KeyNote {
  enum class Kind : std::uint8_t { kLabel, kProperty, kName };

  Kind kind;
  std::string group_id;
  std::string key;
  std::string name;  // of a property
  std::string value;
  std::string description;  // beside a label
};

class NoteRows {
 public:
  static constexpr std::size_t kMostRows = std::size_t{1} << 17;  // of a table

  explicit NoteRows(Database* database);

  void Write(const std::vector<KeyNote>& notes);
  // DropUnused makes room where tables are half full.
  void DropUnused(std::span<const GroupInfo> groups);

 private:
  static constexpr std::size_t kKinds = 3;

  [[nodiscard]] std::size_t RowsOf(std::size_t kind);
  void Put(const KeyNote& note, bool may_add);

  Database& database_;
  std::array<Statement, kKinds> puts_;
  std::array<Statement, kKinds> counts_;
};

}  // namespace flow::host
