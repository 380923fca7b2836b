#include "host/engine/stats_store.h"

#include <utility>

namespace flow::host {

CounterGroup::CounterGroup(GroupInfo description)
    : info(std::move(description)),
      columns(info.Columns()),
      table(info.key_kind == KeyKind::kSession ? kFlowWords : columns) {}

StatsStore::StatsStore(const GroupCatalog& catalog) : index_(kIndexSlots) {
  for (const GroupInfo& info : catalog.groups()) AddGroup(info);
  flow_group_ = &Group(kFlowGroup);
}

CounterGroup& StatsStore::AddGroup(GroupInfo info) {
  // Groups are named by code, not by datagrams: half of the index is plenty.
  if (groups_.size() >= kIndexSlots / 2) return *groups_.back();
  std::size_t at = SlotOf(info.guid);
  while (index_[at].group != nullptr) at = (at + 1) % kIndexSlots;
  groups_.push_back(std::make_unique<CounterGroup>(std::move(info)));
  index_[at] = {groups_.back()->info.guid, groups_.back().get()};
  return *groups_.back();
}

std::uint32_t StatsStore::Intern(std::string_view text) {
  const auto known = text_numbers_.find(text);
  if (known != text_numbers_.end()) return known->second;
  texts_.emplace_back(text);
  const auto number = static_cast<std::uint32_t>(texts_.size());
  text_numbers_.emplace(text, number);
  return number;
}

std::string_view StatsStore::TextOf(std::uint32_t number) const {
  return number == 0 ? std::string_view() : std::string_view(texts_[number - 1]);
}

void StatsStore::Merge(const StatsStore& other) {
  records += other.records;
  stray_updates += other.stray_updates;
  for (const auto& from : other.groups_) {
    CounterGroup& into = Group(from->info.guid);
    for (const auto& [key, notes] : from->notes) into.notes.insert_or_assign(key, notes);
    if (&into == flow_group_) continue;
    from->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
      std::uint64_t* const sums = into.table.FindOrAdd(key);
      for (std::size_t i = 0; i < into.columns; ++i) sums[i] += values[i];
    });
  }
  MergeFlows(other);
}

void StatsStore::MergeFlows(const StatsStore& other) {
  other.flow_group_->table.ForEach([&](std::string_view key, const std::uint64_t* values) {
    FlowRecord part = Flow(values);
    if (part.tag != 0) part.tag = Intern(other.TextOf(part.tag));
    if (part.text != 0) part.text = Intern(other.TextOf(part.text));
    MergeFlow(part, &Flow(flow_group_->table.FindOrAdd(key)));
  });
}

std::size_t StatsStore::Memory() const {
  std::size_t bytes = 0;
  for (const auto& group : groups_) bytes += group->table.Memory();
  return bytes;
}

}  // namespace flow::host
