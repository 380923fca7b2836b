// SPDX-License-Identifier: Apache-2.0
#include "host/store/store.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/base/number_text.h"
#include "host/names/key_text.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostJobs = 256;
// And so many minutes that could not be written.
constexpr std::size_t kMostMinutes = 60;

std::int64_t BucketOf(Timestamp time) {
  return time / kMicrosPerSecond / kMinuteSeconds * kMinuteSeconds;
}

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

Store::Store(const StoreOptions& options, std::span<const GroupInfo> groups,
             const StandIns& stand_ins, Console& console)
    : options_(options),
      groups_(groups),
      stand_ins_(stand_ins),
      console_(console),
      minute_(std::make_unique<StatsStore>(groups)),
      counters_(std::make_unique<Counters>(options_, groups)),
      flows_(options_, stand_ins),
      writer_("store", kMostJobs) {
  TellNotices();
  for (const auto& [hour, rows] : counters_->OpenFlowFiles()) flows_.Trim(hour, rows);
}

void Store::Post(const Writer::Job& job) {
  const Writer::Job timed = [this, job] {
    const auto start = Writer::Clock::now();
    job();
    const std::chrono::duration<double> took = Writer::Clock::now() - start;
    write_seconds_ = write_seconds_ + took.count();
  };
  while (!writer_.Post(timed)) {
    if (!options_.waits) {
      failed_ = true;
      return console_.Error("the store hangs; what is counted meanwhile is not kept");
    }
    WaitAWhile();
  }
}

void Store::WaitAWhile() {
  constexpr std::chrono::milliseconds kWhile(50);
  static_cast<void>(writer_.FinishBy(Writer::Clock::now() + kWhile));
}

void Store::TakeFlows(Timestamp time, FlowBatch flows) {
  const std::uint64_t count = flows.table.size();
  not_kept_.Add(flows.let_go);
  if (count == 0) return;
  const std::uint64_t most = Shares().flows_waiting;  // unless they came at once
  const auto is_full = [&] { return flows_waiting_ > 0 && flows_waiting_ + count > most; };
  while (options_.waits && is_full()) WaitAWhile();
  if (is_full()) {
    if (!std::exchange(told_full_, true)) {
      console_.Error(
          "the store cannot take flows as fast as they come; what it lets go is told there");
    }
    return not_kept_.Add(flows);
  }
  flows_waiting_ += count;
  const auto batch = std::make_shared<FlowBatch>(std::move(flows));
  Post([this, batch, bucket = BucketOf(time)] {
    WriteFlows(bucket, *batch);
    flows_waiting_ -= batch->table.size();
  });
}

void Store::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  if (tick.to == 0) return;
  if (from_ == 0) from_ = tick.from;
  for (const Harvest& harvest : harvests) {
    minute_->MergeCounters(*harvest.store);
    NoteLetGo(LetGo::kKeys, minute_->PruneTo(Shares().period_keys));
    exporters_.Merge(harvest.exporters);
  }
  losses_.Add(tick.losses);
  if (tick.is_last || tick.to % (kMinuteSeconds * kMicrosPerSecond) == 0) EndMinute(tick);
}

void Store::EndMinute(const Tick& tick) {
  const auto minute = std::make_shared<StoredMinute>();
  minute->bucket = BucketOf(tick.to - 1);
  minute->from = std::exchange(from_, 0) / kMicrosPerSecond;
  minute->to = tick.to / kMicrosPerSecond;
  TakeExporters(minute.get());
  minute->losses = std::exchange(losses_, {});
  TakeNotes(minute.get());
  const NotKept not_kept = std::exchange(not_kept_, {});
  const std::shared_ptr<StatsStore> counted =
      std::exchange(minute_, std::make_unique<StatsStore>(groups_));
  Post([this, minute, counted, not_kept] {
    TakeCounts(*counted, minute.get());
    WriteMinute(std::move(*minute), not_kept);
  });
}

void Store::TakeExporters(StoredMinute* minute) {
  const KeyedNotes* notes = nullptr;
  for (const auto& group : minute_->groups()) {
    if (group->info.guid == kExporterGroup) notes = &group->notes;
  }
  for (const ExporterTable::Row& row : std::exchange(exporters_, {}).Rows()) {
    ExporterHealth& health = minute->exporters.emplace_back(ExporterHealth{row});
    IpAddress& address = health.row.key.endpoint.address;
    health.sampling_rate = SamplingRateOf(notes, address);
    address = stand_ins_.RealOf(address);
  }
}

// Those that are new or have changed; where too many are known, all are written once more.
void Store::TakeNotes(StoredMinute* minute) {
  const auto take = [&](KeyNote note) {
    if (known_notes_.size() >= Shares().known_notes) known_notes_.clear();
    std::string& known = known_notes_[fmt::format("{}\n{}\n{}\n{}", static_cast<int>(note.kind),
                                                  note.group_id, note.key, note.name)];
    const std::string value = note.value + '\n' + note.description;
    if (known != value) minute->notes.push_back(std::move(note));
    known = value;
  };
  for (const auto& group : minute_->groups()) {
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
void Store::TakeCounts(const StatsStore& counted, StoredMinute* minute) {
  if (named_.size() >= Shares().known_notes) named_.clear();
  minute->counts.Add(counted, [&](const GroupInfo& group, std::string_view raw) {
    KeptKey kept = KeptKeyOf(stand_ins_, group, raw);
    if (!kept.name.empty() && named_.insert(fmt::format("{}\n{}", group.id, kept.key)).second) {
      minute->notes.push_back({KeyNote::Kind::kName, group.id, kept.key, "", kept.name, ""});
    }
    return std::move(kept.key);
  });
}

// One trouble is told once, until things go well again.
template <class Action>
bool Store::Try(Action&& action) {
  try {
    action();
    return true;
  } catch (const std::exception& error) {
    failed_ = true;
    if (!std::exchange(in_trouble_, true)) {
      console_.Error(fmt::format("the store cannot be written: {}", error.what()));
    }
    return false;
  }
}

// What comes before a minute ends is the minute's, whatever its time was.
void Store::WriteFlows(std::int64_t bucket, const FlowBatch& batch) {
  if (open_minute_ == 0) open_minute_ = bucket;
  bucket = open_minute_;
  if (Try([&] {
        OpenFlows(bucket);
        uncommitted_.Add(flows_.Write(bucket, batch));
      })) {
    return;
  }
  uncommitted_.Add(batch);
  LoseFlows();
}

// The counters know of a file before it has rows, and others in their place do, too.
void Store::OpenFlows(std::int64_t bucket) {
  const bool is_other = flows_.Open(bucket);
  const FlowFile& file = *flows_.file();
  if (!is_other && hour_ == file.hour()) return;
  AtHand().NoteOpened(file.hour(), file.path(), file.rows());
  if (hour_ != 0) AtHand().NoteClosed(hour_, FlowFilePath(options_.directory, hour_));
  hour_ = file.hour();
  is_new_hour_ = true;
}

Counters& Store::AtHand() {
  if (!counters_) counters_ = std::make_unique<Counters>(options_, groups_);
  return *counters_;
}

// What somebody has removed would be written for nobody. The old ones are closed before there are
// others of their names.
void Store::LetGoOfMoved() {
  if (flows_.LetGoIfMoved()) {
    failed_ = true;
    console_.Error(
        "the hour's file of flows was removed or replaced while it was written: another one goes "
        "on");
    LoseFlows();
    hour_ = 0;
  }
  if (!counters_ || !counters_->WasMoved()) return;
  failed_ = true;
  console_.Error(
      fmt::format("{} was removed or replaced while it was written: another one goes "
                  "on from here",
                  CountersPath(options_.directory)));
  counters_.reset();
  hour_ = 0;
  Try([this] { AtHand(); });
}

// What the minute at hand had so far is gone.
void Store::LoseFlows() {
  lost_.Add(std::exchange(uncommitted_, {}));
  Try([&] { flows_.Rollback(); });
}

void Store::WriteMinute(StoredMinute minute, NotKept not_kept) {
  LetGoOfMoved();
  not_kept.Add(std::exchange(lost_, {}));
  const bool has_flows = Try([&] {
    // Of another hour they are where a clock was set.
    std::int64_t bucket = std::exchange(open_minute_, 0);
    if (bucket / kHourSeconds == minute.bucket / kHourSeconds || bucket == 0) {
      bucket = minute.bucket;
    }
    OpenFlows(bucket);
    minute.flows = flows_.Commit(bucket, not_kept);
    OpenFlows(minute.bucket);
  });
  if (has_flows) {
    uncommitted_ = {};
  } else {
    LoseFlows();
    not_kept.Add(lost_);  // and the file will know with the next minute
  }
  minute.flows_not_kept = not_kept.flows;
  if (flows_.file() != nullptr) minute.flow_rows = flows_.file()->rows();
  waiting_.push_back(std::move(minute));
  // A collector has told what went wrong, and its status is for what is wrong at the end; captures
  // can be read again.
  const bool is_well = WriteWaiting() && has_flows;
  failed_ = !is_well || (options_.waits && failed_);
}

bool Store::WriteWaiting() {
  bool is_old_gone = true;
  while (!waiting_.empty()) {
    const StoredMinute& minute = waiting_.front();
    if (!Try([&] {
          if (unwritten_to_ != 0) AtHand().NoteUnwritten(unwritten_from_, unwritten_to_);
          unwritten_to_ = 0;
          AtHand().Write(minute);
        })) {
      break;
    }
    in_trouble_ = false;
    TellNotices();
    if (std::exchange(is_new_hour_, false)) is_old_gone = Try([&] { DropOld(minute.bucket); });
    waiting_.pop_front();
  }
  if (waiting_.size() > kMostMinutes) {
    if (unwritten_to_ == 0) unwritten_from_ = waiting_.front().bucket;
    unwritten_to_ = waiting_.front().bucket + kMinuteSeconds;
    waiting_.pop_front();
  }
  return waiting_.empty() && is_old_gone;
}

void Store::TellNotices() {
  for (const std::string& notice : AtHand().TakeNotices()) console_.Notice(notice);
}

void Store::DropOld(std::int64_t now) {
  AtHand().DropOld(now);
  for (const std::int64_t hour : flows_.DropOld(now, AtHand().retention())) {
    AtHand().ForgetFlowFile(hour);
  }
  AtHand().retention().EndPass();
}

void Store::End() {
  Post([this] {
    Try([this] {
      const bool has_file = flows_.Close().has_value();
      if (has_file && hour_ != 0)
        AtHand().NoteClosed(hour_, FlowFilePath(options_.directory, hour_));
    });
    Try([this] { AtHand().End(); });
  });
  while (options_.waits && writer_.Waiting() > 0) WaitAWhile();
}

}  // namespace flow::host
