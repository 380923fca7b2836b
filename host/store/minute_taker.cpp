// SPDX-License-Identifier: Apache-2.0
#include "host/store/minute_taker.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <tuple>
#include <utility>

#include "host/base/memory_budget.h"
#include "host/names/key_text.h"

namespace flow::host {
namespace {

// Readable, but without names: those stand in a table of their own.
struct KeptKey {
  std::string key;
  std::string name;
};
KeptKey KeptKeyOf(const StandIns& stand_ins, const GroupInfo& group, std::string_view key) {
  KeptKey kept{ReadableKey(group.key_kind, RealKey(stand_ins, group.key_kind, key)), ""};
  const bool has_name =
      group.key_kind == KeyKind::kApplication || group.key_kind == KeyKind::kProtocol;
  const std::size_t name = has_name ? kept.key.find(" (") : std::string::npos;
  if (name != std::string::npos && kept.key.back() == ')') {
    kept.name = kept.key.substr(name + 2, kept.key.size() - name - 3);
    kept.key.resize(name);
  }
  if (kept.key == kOthersKey) kept.key += ' ';
  return kept;
}

using KeyedNotes = decltype(GroupCounters::notes);

// What an exporter, by the address that meters know, has told of its sampling; 0 for nothing.
std::uint64_t SamplingRateOf(const KeyedNotes* notes, const IpAddress& exporter) {
  if (notes == nullptr || notes->empty()) return 0;
  const auto found = notes->find(fmt::format("{:02X}", fmt::join(exporter.bytes(), ".")));
  if (found == notes->end()) return 0;
  const auto text = found->second.properties.find("netflow.sampling_rate");
  std::uint64_t rate = 0;
  if (text == found->second.properties.end()) return 0;
  std::from_chars(text->second.data(), text->second.data() + text->second.size(), rate);
  return rate;
}

}  // namespace

MinuteTaker::MinuteTaker(std::span<const GroupInfo> groups, const StandIns& stand_ins)
    : groups_(groups), stand_ins_(stand_ins), counted_(std::make_unique<StatsStore>(groups)) {}

std::shared_ptr<CountedMinute> MinuteTaker::Take(const Tick& tick,
                                                 const std::vector<Harvest>& harvests) {
  if (tick.to == 0) return nullptr;
  if (from_ == 0) from_ = tick.from;
  for (const Harvest& harvest : harvests) {
    counted_->MergeCounters(*harvest.store);
    NoteLetGo(LetGo::kKeys, counted_->PruneTo(Shares().period_keys));
    exporters_.Merge(harvest.exporters);
  }
  losses_.Add(tick.losses);
  const bool ends = tick.is_last || tick.to % (kMinuteSeconds * kMicrosPerSecond) == 0;
  return ends ? EndMinute(tick) : nullptr;
}

std::shared_ptr<CountedMinute> MinuteTaker::EndMinute(const Tick& tick) {
  auto ended = std::make_shared<CountedMinute>();
  StoredMinute& minute = ended->minute;
  minute.bucket = MinuteOf(tick.to - 1);
  minute.from = std::exchange(from_, 0) / kMicrosPerSecond;
  minute.to = tick.to / kMicrosPerSecond;
  TakeExporters(&minute);
  minute.losses = std::exchange(losses_, {});
  TakeNotes(&minute);
  ended->counted = std::exchange(counted_, std::make_unique<StatsStore>(groups_));
  return ended;
}

void MinuteTaker::TakeExporters(StoredMinute* minute) {
  const KeyedNotes* notes = nullptr;
  for (const auto& group : counted_->groups()) {
    if (group->info.guid == kExporterGroup) notes = &group->notes;
  }
  const ExporterTable table = std::exchange(exporters_, {});
  TakeNumbers(table, minute);
  for (const ExporterTable::Row& row : table.Rows()) {
    ExporterHealth& health = minute->exporters.emplace_back(ExporterHealth{row});
    IpAddress& address = health.row.key.endpoint.address;
    health.sampling_rate = SamplingRateOf(notes, address);
    address = stand_ins_.RealOf(address);
  }
}

// A stream's runs have numbers of their own within the minute, from 0. Who is not worth a row has
// none here either.
void MinuteTaker::TakeNumbers(const ExporterTable& table, StoredMinute* minute) const {
  std::vector<StreamNumbers>& numbers = minute->numbers;
  absl::flat_hash_set<ExportSource> sources;
  if (!table.numbers().empty()) {
    for (const ExporterTable::Row& row : table.Rows()) sources.insert(row.key);
  }
  for (const StreamNumbers& one : table.numbers()) {
    if (!sources.contains({one.exporter, one.version})) continue;
    numbers.push_back(one);
    numbers.back().exporter.address = stand_ins_.RealOf(one.exporter.address);
  }
  const auto stream = [](const StreamNumbers& one) {
    return std::tie(one.exporter, one.version, one.of_samples, one.stream);
  };
  std::ranges::sort(numbers, [&](const StreamNumbers& a, const StreamNumbers& b) {
    return std::tuple_cat(stream(a), std::tie(a.run)) < std::tuple_cat(stream(b), std::tie(b.run));
  });
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const bool goes_on = i > 0 && stream(numbers[i]) == stream(numbers[i - 1]);
    numbers[i].run = goes_on ? numbers[i - 1].run + 1 : 0;
  }
}

// Those that are new or have changed; where too many are known, all are given once more.
void MinuteTaker::TakeNotes(StoredMinute* minute) {
  const auto take = [&](KeyNote note) {
    if (known_notes_.size() >= Shares().known_notes) known_notes_.clear();
    std::string& known = known_notes_[fmt::format("{}\n{}\n{}\n{}", static_cast<int>(note.kind),
                                                  note.group_id, note.key, note.name)];
    const std::string value = note.value + '\n' + note.description;
    if (known != value) minute->notes.push_back(std::move(note));
    known = value;
  };
  for (const auto& group : counted_->groups()) {
    const std::string& id = group->info.id;
    for (const auto& [raw, notes] : group->notes) {
      const std::string key = KeptKeyOf(stand_ins_, group->info, raw).key;
      if (!notes.label.empty() || !notes.description.empty()) {
        take({KeyNote::Kind::kLabel, id, key, "", notes.label, notes.description});
      }
      for (const auto& [name, value] : notes.properties) {
        take({KeyNote::Kind::kProperty, id, key, name, value, ""});
      }
    }
  }
}

// Names come with the first minute that has the key.
void MinuteTaker::ReadCounts(CountedMinute* ended) {
  StoredMinute* const minute = &ended->minute;
  if (named_.size() >= Shares().known_notes) named_.clear();
  minute->counts.Add(*ended->counted, [&](const GroupInfo& group, std::string_view raw) {
    KeptKey kept = KeptKeyOf(stand_ins_, group, raw);
    if (!kept.name.empty() && named_.insert(fmt::format("{}\n{}", group.id, kept.key)).second) {
      minute->notes.push_back({KeyNote::Kind::kName, group.id, kept.key, "", kept.name, ""});
    }
    return std::move(kept.key);
  });
}

}  // namespace flow::host
