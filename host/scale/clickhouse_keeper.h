// SPDX-License-Identifier: Apache-2.0
// Keeps what was counted in a ClickHouse: every bucket of every group whole, and every flow.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/base/writer.h"
#include "host/period/keeper.h"
#include "host/scale/clickhouse_server.h"
#include "host/scale/flow_blocks.h"
#include "host/scale/minute_blocks.h"
#include "host/scale/sender.h"
#include "host/store/minute_taker.h"

namespace flow::host {

class Console;

// Which run it is, and what becomes of what cannot be sent in time.
struct KeeperRun {
  std::string program;
  std::uint64_t run = 0;
  bool waits = false;         // captures: whoever counts waits, and what is there counts as sent
  bool is_repeatable = true;  // captures: the same ones make the same blocks again
};

class ClickHouseKeeper final : public Keeper {
 public:
  // UsageError where the options cannot be right, HostError where the spool cannot be used or,
  // where somebody waits, the server. All but the options outlive it.
  ClickHouseKeeper(const ClickHouseOptions& options, const KeeperRun& run,
                   std::span<const GroupInfo> groups, const StandIns& stand_ins, Console& console);

  void TakeFlows(Timestamp time, const std::shared_ptr<const FlowBatch>& flows) override;
  void Take(const Tick& tick, const std::vector<Harvest>& harvests) override;
  void End() override;
  [[nodiscard]] bool FinishBy(Writer::Clock::time_point deadline) override;
  [[nodiscard]] bool Succeeded() const override { return !failed_; }
  [[nodiscard]] const char* name() const override { return "ClickHouse"; }

 private:
  void Post(const Writer::Job& job);
  void WaitAWhile();
  // In the writer's thread.
  void WriteMinute(CountedMinute* ended, NotKept not_kept);
  void WriteGap();
  void Give(Block block);
  void NoteLost(const Block& block);
  bool Begin(ClickHouseClient* client) const;

  Sending sending_;
  KeeperRun run_;
  Console& console_;
  MinuteTaker minutes_;
  NotKept not_kept_;
  bool told_full_ = false;

  // Of the writer's thread.
  std::uint32_t next_block_ = 1;
  std::int64_t open_minute_ = 0;  // that has flows, and has not ended; 0 for none
  std::uint64_t flows_ = 0;       // of it
  NotKept lost_;                  // flows of blocks that were let go
  std::int64_t gap_from_ = 0;     // of counters that were; 0 for none
  std::int64_t gap_to_ = 0;
  bool told_lost_ = false;

  std::atomic<bool> failed_ = false;
  std::atomic<std::uint64_t> flows_waiting_ = 0;
  FlowBlocks flow_blocks_;
  MinuteBlocks minute_blocks_;
  Sender sender_;
  Writer writer_;  // the last to be made, the first to go
};

}  // namespace flow::host
