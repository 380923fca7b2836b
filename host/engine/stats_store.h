// SPDX-License-Identifier: Apache-2.0
// What the statistics engine has counted: a table of keys per group, flows, labels and properties.
//
// A store takes updates from one thread. Several stores can be merged into one.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/engine/flow_batch.h"
#include "host/engine/flow_totals.h"
#include "host/engine/group_info.h"
#include "host/engine/key_table.h"
#include "host/engine/recent_rows.h"
#include "host/engine/text_map.h"

namespace flow::host {

// What was said about a key beside its counts.
struct KeyNotes {
  std::string label;
  std::string description;
  std::map<std::string, std::string, std::less<>> properties;
  std::uint64_t told = 0;  // last, by the number of the datagram that did
  bool is_own = false;     // of an exporter, where all that its meters learn of it was learnt
};

// One counter group: its description and its keys.
struct GroupCounters {
  explicit GroupCounters(GroupInfo description);

  GroupInfo info;
  std::size_t columns;
  std::size_t table_columns;  // that updates of counters find in the table: none of flows
  KeyTable table;
  std::optional<FlowTable> flows;  // of the flow group, in place of the table
  std::map<std::string, KeyNotes, std::less<>> notes;

  // What was let go: how many keys, the sums of their columns, and the most that one of them can
  // have had in all columns that rank; of flows what they carried.
  std::uint64_t pruned_keys = 0;
  std::vector<std::uint64_t> pruned_sums;
  std::uint64_t pruned_most = 0;
  FlowSums pruned_flows;

  [[nodiscard]] std::size_t size() const { return flows ? flows->size() : table.size(); }
  [[nodiscard]] std::size_t Memory() const { return flows ? flows->Memory() : table.Memory(); }
};

class StatsStore {
 public:
  explicit StatsStore(std::span<const GroupInfo> groups);
  StatsStore(const StatsStore&) = delete;
  StatsStore& operator=(const StatsStore&) = delete;

  // Group gives the group of an identifier; one that nobody described is added.
  GroupCounters& Group(const GUID& guid) {
    std::size_t at = SlotOf(guid);
    while (index_[at].group != nullptr) {
      if (index_[at].guid == guid) return *index_[at].group;
      at = (at + 1) % kIndexSlots;
    }
    return AddUnknownGroup(guid);
  }

  // Rows of groups whose keys say nothing of records.
  [[nodiscard]] const RecentRows& recent() const { return recent_; }
  void NoteRecent(const GroupCounters& group, std::string_view key, std::uint64_t* values) {
    if (group.info.word != RecordWord::kNone) return;
    recent_.Put(group.info.guid, key, values, group.columns);
  }

  // In the order in which they were given, unknown ones behind.
  [[nodiscard]] const std::vector<std::unique_ptr<GroupCounters>>& groups() const {
    return groups_;
  }

  GroupCounters& flow_group() { return *flow_group_; }
  [[nodiscard]] const GroupCounters& flow_group() const { return *flow_group_; }
  FlowTable& flows() { return *flow_group_->flows; }
  [[nodiscard]] const FlowTable& flows() const { return *flow_group_->flows; }

  // Intern gives the number of a tag or text of flows, from 1; TextOf the other way, "" for 0.
  std::uint32_t Intern(std::string_view text);
  [[nodiscard]] std::string_view TextOf(std::uint32_t number) const;

  // Merge adds everything that another store has counted; the second form empties it and costs
  // much less.
  void Merge(const StatsStore& other);
  void Merge(StatsStore&& other);

  // MergeCounters is the first form without flows.
  void MergeCounters(const StatsStore& other);

  // TakeFlows hands out all flows; AddFlows adds some, as they are or as reports show them: those
  // that differ in no more than exporter, interfaces or client's port are one. MoveFlows and
  // MoveShownFlows empty the batch: the first costs much less time, the second half of the memory.
  FlowBatch TakeFlows();
  void MoveFlows(FlowBatch&& flows);
  void AddFlows(const FlowBatch& flows);
  void AddShownFlows(const FlowBatch& flows, bool have_ends);
  void MoveShownFlows(FlowBatch&& flows, bool have_ends);

  // CopyNotes takes over what was said about keys beside their counts.
  void CopyNotes(const StatsStore& other);

  // Clear forgets the keys of a group.
  void Clear(const GUID& group);

  // Prune cuts every group with more keys than its high mark down to its low mark, largest kept.
  void Prune();

  // PruneTo lets the smallest keys of the largest groups go where the tables hold more memory than
  // this, until they hold half of it. The result is how many.
  std::uint64_t PruneTo(std::size_t bytes);

  // Notes and texts beyond their shares of memory are not kept: their number is the exporters'
  // choice.
  KeyNotes& NotesOf(GroupCounters& group, std::string_view key);

  // SetProperty sets a property of a key. A meter may say all that it knows over and over again,
  // for each record of a datagram: what follows on the same as before, and is the same as before,
  // is found without a search.
  void SetProperty(GroupCounters& group, std::string_view key, std::string_view name,
                   std::string_view value, std::uint64_t number);

  // Bytes of memory in the tables.
  [[nodiscard]] std::size_t Memory() const;

  std::uint64_t records = 0;        // MarkRecord
  std::uint64_t stray_updates = 0;  // of meters that their group does not have; not counted
  bool flows_are_shown = false;     // see FlowBatch

 private:
  struct IndexSlot {
    GUID guid{};
    GroupCounters* group = nullptr;
  };
  static constexpr std::size_t kIndexSlots = 256;  // at most half are taken

  static std::size_t SlotOf(const GUID& guid) { return guid.Data1 * 0x9E3779B1U >> 24; }
  GroupCounters& AddGroup(GroupInfo info);
  [[gnu::cold]] GroupCounters& AddUnknownGroup(const GUID& guid);
  void MergeBesideKeys(const StatsStore& other);
  void MergeNotes(const GroupCounters& from, GroupCounters* into);
  template <class Texts>  // that know what a number stands for
  void RenumberTexts(const Texts& texts, FlowTotals* flow);
  template <class ForEach>
  void AddShownRows(const FlowBatch& flows, bool have_ends, const ForEach& for_each);
  void AddShownRow(const FlowBatch& flows, const FlowTable::ShownRow& row, bool have_ends);
  void AddShownText(const FlowBatch& flows, std::string_view key, const std::uint64_t* values,
                    bool have_ends);
  void Prune(GroupCounters* group, std::size_t kept);
  static void DropStrayNotes(GroupCounters* group);

  std::vector<std::unique_ptr<GroupCounters>> groups_;
  std::vector<IndexSlot> index_;
  GroupCounters* flow_group_ = nullptr;
  RecentRows recent_;
  TextMap<std::uint32_t> text_numbers_;
  std::vector<std::string> texts_;
  KeyNotes spilled_notes_;  // of keys beyond those that have some

  // A property in the order in which they were set last.
  struct ToldProperty {
    const GroupCounters* group;
    KeyNotes* notes;
    std::string_view key;
    std::string_view name;
    const std::string* value;
    ToldProperty* next = nullptr;
  };
  void ForgetTold();  // before notes change otherwise
  ToldProperty* NoteTold(GroupCounters& group, std::string_view key, std::string_view name);
  absl::flat_hash_map<const std::string*, std::unique_ptr<ToldProperty>> told_;
  ToldProperty* last_told_ = nullptr;
};

}  // namespace flow::host
