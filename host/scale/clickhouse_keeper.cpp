// SPDX-License-Identifier: Apache-2.0
#include "host/scale/clickhouse_keeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/scale/earlier_runs.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostJobs = 256;

// As much as the flows that may wait take as rows.
std::size_t QueueBytes() {
  constexpr std::uint64_t kLeast = 16 << 20;
  constexpr std::uint64_t kMost = 256 << 20;
  constexpr std::uint64_t kFlowBytes = 64;
  return std::clamp(Shares().flows_waiting * kFlowBytes, kLeast, kMost);
}

}  // namespace

ClickHouseKeeper::ClickHouseKeeper(const ClickHouseOptions& options, const KeeperRun& run,
                                   std::span<const GroupInfo> groups, const StandIns& stand_ins,
                                   Console& console)
    : sending_{options.collector, run.run},
      run_(run),
      console_(console),
      minutes_(groups, stand_ins),
      flow_blocks_(
          sending_, stand_ins, [this] { return next_block_++; },
          [this](Block block) { Give(std::move(block)); }),
      minute_blocks_(
          sending_, groups, run.program, [this] { return next_block_++; },
          [this](Block block) { Give(std::move(block)); }),
      sender_({ServerOf(options), run.waits ? "" : options.spool, options.spool_bytes, QueueBytes(),
               run.waits, run.waits, run.run,
               [this](ClickHouseClient* client) { return Begin(client); }},
              console),
      writer_("ClickHouse", kMostJobs) {
  if (!run.waits) return;
  ClickHouseClient client(ServerOf(options));
  CheckTables(&client);
}

// Before the first block of the run; in the sender's thread.
bool ClickHouseKeeper::Begin(ClickHouseClient* client) const {
  if (!run_.waits) {
    EndEarlierRuns(client, sending_);
    return true;
  }
  switch (StateOfRun(client, sending_, run_.program)) {
    case RunState::kNone:
      BeginRun(client, sending_, run_.program);
      return true;
    case RunState::kEnded:
      console_.Notice("ClickHouse has these captures already; nothing is sent");
      return false;
    case RunState::kPartly:
      if (run_.is_repeatable) return true;
      [[fallthrough]];
    case RunState::kOther:
      throw ClickHouseGivesUp(PartlyThere(sending_));
  }
  return true;
}

void ClickHouseKeeper::Post(const Writer::Job& job) {
  while (!writer_.Post(job)) {
    if (!run_.waits) {
      failed_ = true;
      return console_.Error("the writer for ClickHouse hangs; what is counted is not kept there");
    }
    WaitAWhile();
  }
}

void ClickHouseKeeper::WaitAWhile() {
  constexpr std::chrono::milliseconds kWhile(50);
  static_cast<void>(writer_.FinishBy(Writer::Clock::now() + kWhile));
}

void ClickHouseKeeper::TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) {
  const std::uint64_t count = flows->table.size();
  not_kept_.Add(flows->let_go);
  if (count == 0) return;
  const auto is_full = [&] {
    return flows_waiting_ > 0 && flows_waiting_ + count > Shares().flows_waiting;
  };
  while (run_.waits && is_full()) WaitAWhile();
  if (is_full()) {
    if (!std::exchange(told_full_, true)) {
      console_.Error(
          "flows come faster than they are written for ClickHouse; what is let go is "
          "counted there");
    }
    return not_kept_.Add(*flows);
  }
  flows_waiting_ += count;
  Post([this, flows, bucket = MinuteOf(time)] {
    // What comes before a minute ends is the minute's, whatever its time was.
    if (open_minute_ == 0) open_minute_ = bucket;
    flows_ += flows->table.size();
    flow_blocks_.Add(open_minute_, *flows);
    flows_waiting_ -= flows->table.size();
  });
}

void ClickHouseKeeper::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  const std::shared_ptr<CountedMinute> ended = minutes_.Take(tick, harvests);
  if (ended == nullptr) return;
  Post([this, ended, not_kept = std::exchange(not_kept_, {})] {
    WriteMinute(ended.get(), not_kept);
  });
}

void ClickHouseKeeper::WriteMinute(CountedMinute* ended, NotKept not_kept) {
  flow_blocks_.Flush();
  open_minute_ = 0;
  minutes_.ReadCounts(ended);
  ended->counted.reset();
  ended->minute.flows = std::exchange(flows_, 0) - lost_.flows;
  not_kept.Add(std::exchange(lost_, {}));
  ended->minute.flows_not_kept = not_kept.flows;
  WriteGap();
  minute_blocks_.Write(std::move(ended->minute));
}

// Of counters that were let go.
void ClickHouseKeeper::WriteGap() {
  if (gap_from_ == 0) return;
  minute_blocks_.WriteGap(std::exchange(gap_from_, 0), std::exchange(gap_to_, 0), "not written");
}

void ClickHouseKeeper::Give(Block block) {
  Block lost;  // what is of use where it is
  lost.table = block.table;
  lost.bucket = block.bucket;
  lost.rows = block.rows;
  lost.bytes = block.bytes;
  lost.packets = block.packets;
  if (!sender_.Give(std::move(block))) NoteLost(lost);
}

void ClickHouseKeeper::NoteLost(const Block& block) {
  failed_ = true;
  if (!std::exchange(told_lost_, true)) {
    console_.Error(
        "there is no more room for what waits for ClickHouse; what is let go is "
        "counted there");
  }
  if (block.table == "raw_flows") {
    NotKept flows;
    flows.Add(FlowSums{block.rows, block.bytes, block.packets});
    return lost_.Add(flows);
  }
  if (gap_from_ == 0) gap_from_ = block.bucket;
  gap_to_ = std::max(gap_to_, block.bucket + kMinuteSeconds);
}

void ClickHouseKeeper::End() {
  Post([this] {
    flow_blocks_.Flush();
    WriteGap();
    minute_blocks_.End();
  });
  if (!run_.waits) return;
  while (writer_.Waiting() > 0) WaitAWhile();
  if (!sender_.Wait()) failed_ = true;
}

bool ClickHouseKeeper::FinishBy(Writer::Clock::time_point deadline) {
  return writer_.FinishBy(deadline) && sender_.FinishBy(deadline);
}

}  // namespace flow::host
