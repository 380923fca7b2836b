// SPDX-License-Identifier: Apache-2.0
#include "host/store/note_rows.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/memory_budget.h"
#include "host/base/printable.h"
#include "host/store/schema.h"
#include "host/store/store_options.h"

namespace flow::host {
namespace {

constexpr int kMayAdd = 6;

struct Table {
  const char* name;
  const char* values;  // by KeyNote's members: ?1 group, ?2 key, ?3 name, ?4 value, ?5 description
  const char* same;
};
constexpr Table kTables[] = {
    {"labels", "?1, ?2, ?4, ?5", "group_id = ?1 AND key = ?2"},
    {"properties", "?1, ?2, ?3, ?4", "group_id = ?1 AND key = ?2 AND name = ?3"},
    {"names", "?1, ?2, ?4", "group_id = ?1 AND key = ?2"},
};

}  // namespace

NoteRows::NoteRows(Database* database) : database_(*database) {
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    const Table& table = kTables[kind];
    puts_[kind] = database->Prepare(
        fmt::format("INSERT OR REPLACE INTO {0} SELECT {1} WHERE ?{3} OR EXISTS (SELECT 1 FROM {0} "
                    "WHERE {2})",
                    table.name, table.values, table.same, kMayAdd));
    counts_[kind] = database->Prepare(fmt::format("SELECT count(*) FROM {}", table.name));
  }
}

std::size_t NoteRows::RowsOf(std::size_t kind) {
  counts_[kind].Step();
  const auto rows = static_cast<std::size_t>(counts_[kind].Integer(0));
  counts_[kind].Step();
  return rows;
}

void NoteRows::Write(const std::vector<KeyNote>& notes) {
  std::array<std::size_t, kKinds> coming{};
  for (const KeyNote& note : notes) ++coming[static_cast<std::size_t>(note.kind)];
  std::array<bool, kKinds> have_room{};
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    have_room[kind] = coming[kind] > 0 && RowsOf(kind) + coming[kind] <= kMostRows;
    if (coming[kind] > 0 && !have_room[kind]) NoteLetGo(LetGo::kTexts, coming[kind]);
  }
  for (const KeyNote& note : notes) Put(note, have_room[static_cast<std::size_t>(note.kind)]);
}

void NoteRows::Put(const KeyNote& note, bool may_add) {
  Statement& put = puts_[static_cast<std::size_t>(note.kind)];
  put.Bind(1, note.group_id).Bind(2, note.key).Bind(4, Utf8(note.value));
  if (note.kind == KeyNote::Kind::kProperty) put.Bind(3, Utf8(note.name));
  if (note.kind == KeyNote::Kind::kLabel) put.Bind(5, Utf8(note.description));
  put.Bind(kMayAdd, std::int64_t{may_add}).Run();
}

void NoteRows::DropUnused(std::span<const GroupInfo> groups) {
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    if (RowsOf(kind) <= kMostRows / 2) continue;
    for (const GroupInfo& group : groups) {
      if (!HasTiers(group)) continue;
      database_
          .Prepare(fmt::format("DELETE FROM {} WHERE group_id = ? AND key NOT IN (SELECT key FROM "
                               "{} UNION SELECT key FROM {})",
                               kTables[kind].name, Identifier(TierTable(group.id, kTiers[1])),
                               Identifier(TierTable(group.id, kTiers[2]))))
          .Bind(1, group.id)
          .Run();
    }
  }
}

}  // namespace flow::host
