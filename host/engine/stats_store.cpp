// SPDX-License-Identifier: Apache-2.0
#include "host/engine/stats_store.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "host/base/heap_account.h"
#include "host/base/memory_budget.h"
#include "host/engine/shown_flow.h"

namespace flow::host {
namespace {

// The memory that each table may have at most, so that all together have no more than this.
std::size_t LevelOf(const std::vector<std::unique_ptr<GroupCounters>>& groups, std::size_t bytes) {
  std::vector<std::size_t> sizes;
  for (const auto& group : groups) sizes.push_back(group->Memory());
  std::ranges::sort(sizes);
  std::size_t left = sizes.size();
  for (const std::size_t size : sizes) {
    if (size * left > bytes) return bytes / left;
    bytes -= size;
    --left;
  }
  return MemoryShares::kAll;
}

std::uint64_t RankOf(const GroupInfo& info, const std::uint64_t* values) {
  std::uint64_t rank = 0;
  for (const int meter : info.ranking) rank += values[meter];
  return rank;
}

// Rows on their way into a large table, each of which waits until its place is in the cache.
class ShownQueue {
 public:
  explicit ShownQueue(const KeyTable& into) : into_(into) {}

  template <class Add>
  void Put(std::string_view key, const std::uint64_t* values, const Add& add) {
    FlowTable::ShownRow& row = rows_[next_ % kRows];
    if (next_ >= kRows) add(row);
    row.Set(key, values);
    into_.PrefetchSlot(row.hash);
    if (next_ >= kRowAfter) into_.PrefetchRow(rows_[(next_ - kRowAfter) % kRows].hash);
    ++next_;
  }
  template <class Add>
  void Finish(const Add& add) const {
    for (std::size_t i = next_ - std::min(next_, kRows); i < next_; ++i) add(rows_[i % kRows]);
  }

 private:
  static constexpr std::size_t kRows = 16;
  static constexpr std::size_t kRowAfter = 8;

  const KeyTable& into_;
  std::array<FlowTable::ShownRow, kRows> rows_{};
  std::size_t next_ = 0;
};

// Calls visit(key, values, flow) for every key, packed ones of flows; flow is null for others.
template <class Visit>
void ForEachKey(const GroupCounters& group, Visit&& visit) {
  constexpr const FlowTotals* kNoFlow = nullptr;
  if (group.flows) {
    group.flows->ForEachPacked([&](std::string_view key, const FlowTotals& flow) {
      visit(key, static_cast<const std::uint64_t*>(flow.meters), &flow);
    });
  } else {
    group.table.ForEach(
        [&](std::string_view key, const std::uint64_t* values) { visit(key, values, kNoFlow); });
  }
}

}  // namespace

GroupCounters::GroupCounters(GroupInfo description)
    : info(std::move(description)),
      columns(info.Columns()),
      table_columns(info.guid == kFlowGroup ? 0 : columns),
      table(columns),
      pruned_sums(columns) {
  if (info.guid == kFlowGroup) flows.emplace();
}

StatsStore::StatsStore(std::span<const GroupInfo> groups) : index_(kIndexSlots) {
  for (const GroupInfo& info : groups) AddGroup(info);
  flow_group_ = &Group(kFlowGroup);
}

GroupCounters& StatsStore::AddGroup(GroupInfo info) {
  // Groups are named by code, not by datagrams: half of the index is plenty.
  if (groups_.size() >= kIndexSlots / 2) return *groups_.back();
  std::size_t at = SlotOf(info.guid);
  while (index_[at].group != nullptr) at = (at + 1) % kIndexSlots;
  groups_.push_back(std::make_unique<GroupCounters>(std::move(info)));
  index_[at] = {groups_.back()->info.guid, groups_.back().get()};
  return *groups_.back();
}

GroupCounters& StatsStore::AddUnknownGroup(const GUID& guid) {
  const HeapScope scope(nullptr);
  return AddGroup(UnknownGroup(guid));
}

std::uint32_t StatsStore::Intern(std::string_view text) {
  const auto known = text_numbers_.find(text);
  if (known != text_numbers_.end()) return known->second;
  const HeapScope scope(nullptr);
  if (texts_.size() >= Shares().texts && text != kTextNotKept) return Intern(kTextNotKept);
  texts_.emplace_back(text);
  const auto number = static_cast<std::uint32_t>(texts_.size());
  text_numbers_.emplace(text, number);
  return number;
}

std::string_view StatsStore::TextOf(std::uint32_t number) const {
  return number == 0 ? std::string_view() : std::string_view(texts_[number - 1]);
}

KeyNotes& StatsStore::NotesOf(GroupCounters& group, std::string_view key) {
  const HeapScope scope(nullptr);
  const auto known = group.notes.find(key);
  if (known != group.notes.end()) return known->second;
  if (group.notes.size() < Shares().notes) return group.notes[std::string(key)];
  return spilled_notes_ = {};
}

void StatsStore::SetProperty(GroupCounters& group, std::string_view key, std::string_view name,
                             std::string_view value, std::uint64_t number) {
  ToldProperty* const next = last_told_ == nullptr ? nullptr : last_told_->next;
  if (next != nullptr && next->key == key && *next->value == value && next->name == name &&
      next->group == &group) {
    next->notes->told = number;
    last_told_ = next;
    return;
  }
  const HeapScope scope(nullptr);
  KeyNotes& notes = NotesOf(group, key);
  notes.properties.insert_or_assign(std::string(name), value);
  notes.told = number;
  ToldProperty* const told = NoteTold(group, key, name);
  if (last_told_ != nullptr) last_told_->next = told;
  last_told_ = told;
}

// Null for a key whose notes are not kept.
StatsStore::ToldProperty* StatsStore::NoteTold(GroupCounters& group, std::string_view key,
                                               std::string_view name) {
  const auto notes = group.notes.find(key);
  if (notes == group.notes.end()) return nullptr;
  const auto& [kept_name, value] = *notes->second.properties.find(name);
  std::unique_ptr<ToldProperty>& told = told_[&value];
  if (!told) told.reset(new ToldProperty{&group, &notes->second, notes->first, kept_name, &value});
  return told.get();
}

void StatsStore::ForgetTold() {
  last_told_ = nullptr;
  told_.clear();
}

void StatsStore::MergeCounters(const StatsStore& other) {
  MergeBesideKeys(other);
  for (const auto& from : other.groups_) {
    if (from.get() == other.flow_group_) continue;
    GroupCounters& into = Group(from->info.guid);
    from->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
      std::uint64_t* const sums = into.table.FindOrAdd(key);
      for (std::size_t i = 0; i < into.columns; ++i) sums[i] += values[i];
    });
  }
}

void StatsStore::Merge(const StatsStore& other) {
  MergeCounters(other);
  other.flows().ForEachPacked([&](std::string_view key, const FlowTotals& flow) {
    FlowTotals part = flow;
    RenumberTexts(other, &part);
    flows().MergePacked(key, part);
  });
}

void StatsStore::Merge(StatsStore&& other) {
  recent_.Forget();
  other.recent_.Forget();
  MergeBesideKeys(other);
  for (const auto& from : other.groups_) {
    if (from.get() == other.flow_group_) continue;
    GroupCounters& into = Group(from->info.guid);
    into.table.Absorb(std::move(from->table), [&](std::uint64_t* sums, std::uint64_t* values) {
      for (std::size_t i = 0; i < into.columns; ++i) sums[i] += values[i];
    });
  }
  MoveFlows(other.TakeFlows());
}

void StatsStore::MoveFlows(FlowBatch&& flows) {
  if (!flows.texts.empty()) {
    flows.table.Change([&](FlowTotals* flow) { RenumberTexts(flows, flow); });
  }
  this->flows().Absorb(std::move(flows.table));
}

void StatsStore::MergeBesideKeys(const StatsStore& other) {
  ForgetTold();
  records += other.records;
  stray_updates += other.stray_updates;
  for (const auto& from : other.groups_) {
    GroupCounters& into = Group(from->info.guid);
    MergeNotes(*from, &into);
    into.pruned_keys += from->pruned_keys;
    into.pruned_most += from->pruned_most;
    into.pruned_flows.Add(from->pruned_flows);
    for (std::size_t i = 0; i < into.columns; ++i) into.pruned_sums[i] += from->pruned_sums[i];
  }
}

// What was said last counts. But a meter names all sampling rates that it has, those that its
// policy has for exporters of other lanes too: the lane of an exporter knows better.
void StatsStore::MergeNotes(const GroupCounters& from, GroupCounters* into) {
  const auto weight = [](const KeyNotes& notes) { return std::pair(notes.is_own, notes.told); };
  for (const auto& [key, notes] : from.notes) {
    const auto known = into->notes.find(key);
    if (known != into->notes.end() && weight(known->second) > weight(notes)) continue;
    NotesOf(*into, key) = notes;
  }
}

// Texts have other numbers in another store.
template <class Texts>
void StatsStore::RenumberTexts(const Texts& texts, FlowTotals* flow) {
  for (std::uint32_t* const number :
       {&flow->tag, &flow->text, &flow->vrf, &flow->app, &flow->user}) {
    if (*number != 0) *number = Intern(texts.TextOf(*number));
  }
}

FlowBatch StatsStore::TakeFlows() {
  return {std::exchange(flows(), FlowTable()), texts_, std::exchange(flow_group_->pruned_flows, {}),
          flows_are_shown};
}

void StatsStore::AddFlows(const FlowBatch& flows) {
  flows.table.ForEachPacked([&](std::string_view key, const FlowTotals& flow) {
    FlowTotals part = flow;
    RenumberTexts(flows, &part);
    this->flows().MergePacked(key, part);
  });
}

void StatsStore::AddShownText(const FlowBatch& flows, std::string_view key,
                              const std::uint64_t* values, bool have_ends) {
  FlowTotals part = flows.table.Whole(values);
  RenumberTexts(flows, &part);
  if (!have_ends) part.closes = 0;
  ShownFlow shown;
  this->flows().Merge(shown.Of(key, &part), part);
}

void StatsStore::AddShownRow(const FlowBatch& flows, const FlowTable::ShownRow& row,
                             bool have_ends) {
  FlowTable& into = this->flows();
  if (into.MergeShown(row, have_ends)) return;
  FlowTotals part = flows.table.Whole(row.values);
  RenumberTexts(flows, &part);
  if (!have_ends) part.closes = 0;
  if (row.shown.turns) TurnRound(&part);
  into.MergePacked(row.Key(), part);
}

// for_each calls what it is given with the key and the values of every row.
template <class ForEach>
void StatsStore::AddShownRows(const FlowBatch& flows, bool have_ends, const ForEach& for_each) {
  ShownQueue queue(this->flows().rows());
  const auto add = [&](const FlowTable::ShownRow& row) { AddShownRow(flows, row, have_ends); };
  for_each([&](std::string_view key, const std::uint64_t* values) {
    if (IsText(key)) return AddShownText(flows, key.substr(1), values, have_ends);
    queue.Put(key, values, add);
  });
  queue.Finish(add);
}

void StatsStore::AddShownFlows(const FlowBatch& flows, bool have_ends) {
  AddShownRows(flows, have_ends, [&](auto&& visit) { flows.table.rows().ForEach(visit); });
}

void StatsStore::MoveShownFlows(FlowBatch&& flows, bool have_ends) {
  if (flows.are_shown && this->flows().size() == 0) {
    if (!have_ends) flows.table.ForgetEnds();
    return this->flows().Absorb(std::move(flows.table));
  }
  AddShownRows(flows, have_ends, [&](auto&& visit) { flows.table.rows().Drain(visit); });
  flows.table = {};
}

void StatsStore::CopyNotes(const StatsStore& other) {
  ForgetTold();
  for (const auto& from : other.groups_) {
    if (!from->notes.empty()) Group(from->info.guid).notes = from->notes;
  }
}

void StatsStore::Clear(const GUID& group) {
  ForgetTold();
  recent_.Forget();
  GroupCounters& cleared = Group(group);
  cleared.table = KeyTable(cleared.table.values());
  if (cleared.flows) cleared.flows.emplace();
  cleared.notes.clear();
  cleared.pruned_keys = 0;
  cleared.pruned_sums.assign(cleared.columns, 0);
  cleared.pruned_most = 0;
  cleared.pruned_flows = {};
}

void StatsStore::Prune() {
  ForgetTold();
  for (const auto& group : groups_) {
    if (group->size() <= group->info.track_high) continue;
    Prune(group.get(), group->info.track_low);
    DropStrayNotes(group.get());
  }
}

std::uint64_t StatsStore::PruneTo(std::size_t bytes) {
  if (Memory() <= bytes) return 0;
  ForgetTold();
  const std::size_t level = LevelOf(groups_, bytes / 2);
  std::uint64_t pruned = 0;
  for (const auto& group : groups_) {
    const std::size_t memory = group->Memory();
    if (memory <= level) continue;
    // Tables grow in steps: what is kept may hold more than its part.
    constexpr double kFill = 0.7;
    const double part = kFill * static_cast<double>(level) / static_cast<double>(memory);
    const std::size_t before = group->size();
    Prune(group.get(), static_cast<std::size_t>(static_cast<double>(before) * part));
    DropStrayNotes(group.get());
    pruned += before - group->size();
  }
  return pruned;
}

void StatsStore::DropStrayNotes(GroupCounters* group) {
  std::erase_if(group->notes, [&](const auto& note) {
    return group->flows ? !group->flows->Find(note.first) : !group->table.Find(note.first);
  });
}

void StatsStore::Prune(GroupCounters* group, std::size_t kept) {
  recent_.Forget();
  std::vector<std::uint64_t> ranks;
  ranks.reserve(group->size());
  ForEachKey(*group, [&](std::string_view, const std::uint64_t* values, const FlowTotals*) {
    ranks.push_back(RankOf(group->info, values));
  });
  kept = std::min(kept, ranks.size());
  const auto end = ranks.begin() + static_cast<std::ptrdiff_t>(kept);
  std::nth_element(ranks.begin(), end, ranks.end(), std::greater<>());
  const std::uint64_t least = kept == ranks.size() ? 0 : *end;  // those of this rank are kept first
  std::size_t ties = kept - static_cast<std::size_t>(std::count_if(
                                ranks.begin(), end, [&](auto rank) { return rank > least; }));
  KeyTable table(group->table.values());
  FlowTable flows;
  ForEachKey(*group,
             [&](std::string_view key, const std::uint64_t* values, const FlowTotals* flow) {
               const std::uint64_t rank = RankOf(group->info, values);
               if (rank > least || (rank == least && ties > 0)) {
                 if (rank == least) --ties;
                 if (flow != nullptr) return flows.MergePacked(key, *flow);
                 std::copy_n(values, table.values(), table.FindOrAdd(key));
                 return;
               }
               ++group->pruned_keys;
               for (std::size_t i = 0; i < group->columns; ++i) group->pruned_sums[i] += values[i];
               if (flow != nullptr) group->pruned_flows.Add(*flow);
             });
  group->pruned_most += least;
  group->table = std::move(table);
  if (group->flows) group->flows = std::move(flows);
}

std::size_t StatsStore::Memory() const {
  std::size_t bytes = 0;
  for (const auto& group : groups_) bytes += group->Memory();
  return bytes;
}

}  // namespace flow::host
