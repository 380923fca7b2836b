// SPDX-License-Identifier: Apache-2.0
#include "host/store/store.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostJobs = 256;
// And so many minutes that could not be written.
constexpr std::size_t kMostMinutes = 60;

// When the end is near, the last minute's counters come before its flows, and both before what the
// next start can do as well.
constexpr std::chrono::seconds kForFlows(3);
constexpr std::chrono::seconds kForTidyEnd(2);

}  // namespace

Store::Store(const StoreOptions& options, std::span<const GroupInfo> groups,
             const StandIns& stand_ins, Console& console)
    : options_(options),
      groups_(groups),
      console_(console),
      lock_(options_.directory),
      minutes_(groups, stand_ins),
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

bool Store::FinishBy(Writer::Clock::time_point deadline) {
  end_by_ = deadline;
  return writer_.FinishBy(deadline);
}

bool Store::IsShortOf(std::chrono::seconds time) const {
  return end_by_.load() - Writer::Clock::now() < time;
}

void Store::WaitAWhile() {
  constexpr std::chrono::milliseconds kWhile(50);
  static_cast<void>(writer_.FinishBy(Writer::Clock::now() + kWhile));
}

void Store::TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) {
  const std::uint64_t count = flows->table.size();
  not_kept_.Add(flows->let_go);
  if (count == 0) return;
  const std::uint64_t most = Shares().flows_waiting;  // unless they came at once
  const auto is_full = [&] { return flows_waiting_ > 0 && flows_waiting_ + count > most; };
  while (options_.waits && is_full()) WaitAWhile();
  if (is_full()) {
    if (!std::exchange(told_full_, true)) {
      console_.Error(
          "the store cannot take flows as fast as they come; what it lets go is told there");
    }
    return not_kept_.Add(*flows);
  }
  flows_waiting_ += count;
  Post([this, flows, bucket = MinuteOf(time)] {
    WriteFlows(bucket, *flows);
    flows_waiting_ -= flows->table.size();
  });
}

void Store::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  const std::shared_ptr<CountedMinute> ended = minutes_.Take(tick, harvests);
  if (ended == nullptr) return;
  Post([this, ended, not_kept = std::exchange(not_kept_, {})] {
    minutes_.ReadCounts(ended.get());
    WriteMinute(std::move(ended->minute), not_kept);
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
  if (IsShortOf(kForFlows)) {
    if (!std::exchange(told_short_, true)) {
      console_.Error("the store has no time for the last flows; what it lets go is told there");
    }
    return lost_.Add(batch);
  }
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
    if (IsShortOf(kForTidyEnd)) {
      flows_.LeaveAsItIs();
      Try([this] { AtHand().EndInHaste(); });
      return;
    }
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
