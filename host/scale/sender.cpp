// SPDX-License-Identifier: Apache-2.0
#include "host/scale/sender.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/scale/clickhouse_schema.h"
#include "host/scale/row_binary.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kFirstPause = 500ms;
constexpr auto kLongestPause = 8s;
// Whoever waits for room, because captures can be read again, gives up then.
constexpr auto kPatience = 30s;

std::string QueryId(const Block& block) {
  return fmt::format("flowhost-{}-{}-{}", block.collector, block.run, block.number);
}

std::string RowsOf(const Block& block) {
  return fmt::format("{} WHERE bucket = {} AND collector = {} AND run = {} AND block = {}",
                     block.table, block.bucket, SqlText(block.collector), block.run, block.number);
}

std::uint64_t NumberFrom(std::string_view text) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Of what is asked for block by block; rows of other tables are the same however often they come.
bool HasBlocks(const Block& block) {
  return FindRawTable(block.table)->columns.find("block UInt32") != std::string_view::npos;
}

}  // namespace

Sender::Sender(Setup setup, Console& console) : setup_(std::move(setup)), console_(console) {
  client_.emplace(setup_.server);
  if (!setup_.spool.empty()) {
    spool_.emplace(setup_.spool, setup_.spool_bytes);
    next_ = spool_->NextSequence();
    from_before_ = next_ - 1;
    if (spool_->size() > 0) {
      console_.Notice(fmt::format("{} blocks wait in {} for ClickHouse since the last run",
                                  Thousands(spool_->size()), setup_.spool));
    }
  }
  thread_ = std::thread([this] { Loop(); });
}

Sender::~Sender() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    changed_.notify_all();
  }
  client_->Abort();
  thread_.join();
}

// These three under the lock.
bool Sender::IsFull(std::size_t bytes) const {
  return !queue_.empty() && queue_size_ + bytes > setup_.queue_bytes;
}
bool Sender::IsIdle() const {
  return queue_.empty() && sending_ == nullptr && (!spool_ || spool_->size() == 0);
}
bool Sender::IsAwayTooLong() const {
  return !trouble_.empty() && Clock::now() - away_since_ > kPatience;
}

bool Sender::Give(Block block) {
  std::unique_lock lock(mutex_);
  block.sequence = next_++;
  const std::size_t bytes = block.Memory();
  if (setup_.waits) {
    while (IsFull(bytes) && !IsAwayTooLong()) changed_.wait_for(lock, 100ms);
    if (IsAwayTooLong()) return false;
  } else if (spool_ && (!trouble_.empty() || spool_->size() > 0 || IsFull(bytes))) {
    lock.unlock();
    return GiveToSpool(block);
  } else if (IsFull(bytes)) {
    return false;
  }
  queue_size_ += bytes;
  queue_.push_back(std::make_shared<const Block>(std::move(block)));
  changed_.notify_all();
  return true;
}

bool Sender::GiveToSpool(const Block& block, bool has_to_be_kept) {
  try {
    if (!spool_->Put(block, has_to_be_kept)) return false;
  } catch (const HostError& error) {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(told_spool_, true)) {
      console_.Error(fmt::format("the spool cannot be written: {}", error.what()));
    }
    return false;
  }
  const std::lock_guard lock(mutex_);
  told_spool_ = false;
  changed_.notify_all();
  return true;
}

// What waits in memory was given before what waits in the spool, or has been moved there. Null at
// the end.
Sender::SharedBlock Sender::Next() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock,
                  [this] { return ending_ || !queue_.empty() || (spool_ && spool_->size() > 0); });
    if (ending_) return nullptr;
    const std::optional<std::uint64_t> spooled = spool_ ? spool_->FirstSequence() : std::nullopt;
    if (!queue_.empty() && (!spooled || queue_.front()->sequence < *spooled)) {
      sending_ = std::move(queue_.front());
      queue_.pop_front();
      return sending_;
    }
    lock.unlock();
    std::optional<Block> block = spool_->First();
    for (const std::string& trouble : spool_->TakeTrouble()) console_.Error(trouble);
    lock.lock();
    if (!block) continue;
    sending_ = std::make_shared<const Block>(std::move(*block));
    return sending_;
  }
}

void Sender::Loop() {
  auto pause = std::chrono::milliseconds(kFirstPause);
  while (SharedBlock block = Next()) {
    if (Send(*block)) {
      NoteSent(block);
      pause = kFirstPause;
      continue;
    }
    failed_ = block->sequence;
    PutBack(std::move(block));
    SpillQueue();
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, pause, [this] { return ending_; });
    pause = std::min(pause * 2, std::chrono::milliseconds(kLongestPause));
  }
}

// One of the spool is there still.
void Sender::PutBack(SharedBlock block) {
  const std::lock_guard lock(mutex_);
  sending_ = nullptr;
  const bool is_spooled = spool_ && spool_->FirstSequence() == block->sequence;
  if (!is_spooled) queue_.push_front(std::move(block));
}

// Memory is for a server that is slow; for one that is away there is the spool. The newest go
// first: those for which it has no room are sent first.
void Sender::SpillQueue() {
  if (!spool_) return;
  std::unique_lock lock(mutex_);
  while (!queue_.empty()) {
    const SharedBlock block = queue_.back();
    lock.unlock();
    const bool is_kept = GiveToSpool(*block);
    lock.lock();
    if (!is_kept) return;
    if (queue_.empty() || queue_.back() != block) continue;
    queue_.pop_back();
    queue_size_ -= std::min(queue_size_, block->Memory());
  }
}

bool Sender::Send(const Block& block) {
  try {
    SendNow(block);
    return true;
  } catch (const ClickHouseGivesUp& error) {
    NoteFailed(error.what());
    const std::lock_guard lock(mutex_);
    away_since_ -= kPatience;
    return false;
  } catch (const HostError& error) {
    NoteFailed(error.what());
    return false;
  }
}

void Sender::SendNow(const Block& block) {
  const bool is_own = block.run == setup_.run;
  if (is_own && !has_begun_) {
    is_all_there_ = setup_.begin && !setup_.begin(&*client_);
    has_begun_ = true;
  }
  if (is_own && is_all_there_) return;
  const bool may_be_there =
      setup_.asks || block.sequence == failed_ || block.sequence <= from_before_;
  if (may_be_there && HasBlocks(block)) {
    SendWhatIsMissing(block);
  } else {
    SendWhole(block);
  }
}

void Sender::SendWhole(const Block& block) {
  client_->Insert(InsertInto(*FindRawTable(block.table)), QueryId(block), block.body);
}

// A server that has taken a block and was not heard may be at it still.
void Sender::WaitForEnd(const Block& block) {
  const std::string query =
      fmt::format("SELECT count() FROM system.processes WHERE query_id = {} FORMAT TabSeparated",
                  SqlText(QueryId(block)));
  if (NumberFrom(client_->Ask(query)) > 0) {
    throw HostError(fmt::format("ClickHouse at {}: it is at a block that it has got already",
                                client_->server().Text()));
  }
}

// Of counters a block goes whole, and equal rows become one. A row of a flow goes once.
void Sender::SendWhatIsMissing(const Block& block) {
  WaitForEnd(block);
  const std::string rows = RowsOf(block);
  const std::string query = block.HasRowNumbers()
                                ? fmt::format("SELECT DISTINCT row FROM {} FORMAT RowBinary", rows)
                                : fmt::format("SELECT count() FROM {} FORMAT TabSeparated", rows);
  const std::string answer = client_->Ask(query);
  if (!block.HasRowNumbers()) {
    if (NumberFrom(answer) < block.rows) SendWhole(block);
    return;
  }
  std::vector<bool> is_there(block.rows);
  for (std::size_t at = 0; at + sizeof(std::uint32_t) <= answer.size();
       at += sizeof(std::uint32_t)) {
    std::uint32_t row = 0;
    std::memcpy(&row, answer.data() + at, sizeof(row));
    if (row < block.rows) is_there[row] = true;
  }
  std::string missing;
  for (std::uint32_t row = 0; row < block.rows; ++row) {
    const std::uint32_t start = row == 0 ? 0 : block.ends[row - 1];
    if (!is_there[row]) missing.append(block.body, start, block.ends[row] - start);
  }
  if (missing.empty()) return;
  client_->Insert(InsertInto(*FindRawTable(block.table)), QueryId(block), missing);
}

void Sender::NoteSent(const SharedBlock& block) {
  const bool was_spooled = spool_ && spool_->FirstSequence() == block->sequence;
  if (was_spooled) spool_->Drop(block->sequence);
  const std::lock_guard lock(mutex_);
  if (!was_spooled) queue_size_ -= std::min(queue_size_, block->Memory());
  sending_ = nullptr;
  if (!std::exchange(trouble_, "").empty()) {
    console_.Notice(fmt::format("ClickHouse takes blocks again; {} wait",
                                Thousands(queue_.size() + (spool_ ? spool_->size() : 0))));
  }
  changed_.notify_all();
}

// A trouble is told when it begins, and where it is another some time later.
void Sender::NoteFailed(const std::string& trouble) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  if (trouble_.empty()) away_since_ = now;
  if (!ending_ && (trouble_.empty() || (trouble != trouble_ && now - told_at_ > 1min))) {
    console_.Error(trouble);
    told_at_ = now;
  }
  trouble_ = trouble;
}

// What another process has left may take longer than anybody waits for.
bool Sender::FinishBy(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [this] { return IsIdle() || (spool_ && !trouble_.empty()); });
  ending_ = true;
  changed_.notify_all();
  if (IsIdle()) return true;
  if (!spool_) return false;
  // What came of the one at work the next process asks.
  if (sending_ != nullptr) queue_.push_front(sending_);
  lock.unlock();
  SpillQueue();
  client_->Abort();
  if (const std::optional<Block> gaps = TellLost()) GiveToSpool(*gaps, true);
  console_.Notice(fmt::format("{} blocks for ClickHouse stay in {} until the next run",
                              Thousands(spool_->size()), setup_.spool));
  lock.lock();
  return queue_.empty();
}

// What finds no room at the end is a gap, whose row finds some.
std::optional<Block> Sender::TellLost() {
  const std::lock_guard lock(mutex_);
  if (queue_.empty()) return std::nullopt;
  std::uint64_t flows = 0;
  std::uint64_t others = 0;
  Block gaps;
  gaps.table = "raw_gaps";
  gaps.collector = queue_.front()->collector;
  gaps.run = setup_.run;
  for (const SharedBlock& block : queue_) {
    (block->HasRowNumbers() ? flows : others) += block->rows;
    RowBinary(&gaps.body)
        .Text(block->collector)
        .Put(static_cast<std::uint32_t>(block->bucket))
        .Put(static_cast<std::uint32_t>(block->bucket + kMinuteSeconds))
        .Text("not written");
    ++gaps.rows;
  }
  gaps.sequence = next_++;
  console_.Error(
      fmt::format("{} flows and {} other rows for ClickHouse are lost: there is no room "
                  "in {}",
                  Thousands(flows), Thousands(others), setup_.spool));
  return gaps;
}

bool Sender::Wait() {
  std::unique_lock lock(mutex_);
  while (!IsIdle()) {
    if (IsAwayTooLong()) return false;
    changed_.wait_for(lock, 100ms);
  }
  return true;
}

}  // namespace flow::host
