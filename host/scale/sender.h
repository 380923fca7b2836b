// SPDX-License-Identifier: Apache-2.0
// Sends blocks to a ClickHouse, one after the other, in a thread of its own. Nothing is sent twice
// where that can be known: what came of a block that failed is asked before it goes again.
//
// While the server is away blocks wait in memory, or in a spool where there is one.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "host/base/writer.h"
#include "host/scale/block.h"
#include "host/scale/clickhouse_client.h"
#include "host/scale/spool.h"

namespace flow::host {

class Console;

class Sender {
 public:
  using Clock = Writer::Clock;

  struct Setup {
    ClickHouseServer server;
    std::string spool;  // directory; empty for none
    std::uint64_t spool_bytes = 0;
    std::size_t queue_bytes = 0;  // in memory
    bool waits = false;           // Give waits for room, until the server is away for too long
    bool asks = false;            // whether blocks are there, of all of them
    std::uint64_t run = 0;        // of this process
    // Done once before the first block of this run; false where all of the run is there already.
    // HostError where it is to be tried again.
    std::function<bool(ClickHouseClient* client)> begin;
  };

  // HostError where the spool cannot be used.
  Sender(Setup setup, Console& console);
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  // Give takes a block; false where there is no room for it. One thread's.
  bool Give(Block block);

  // FinishBy waits for everything to be sent; what is not by the deadline goes to the spool. False
  // where blocks are lost. Nothing is given afterwards.
  [[nodiscard]] bool FinishBy(Clock::time_point deadline);
  // Wait waits as long as the server takes blocks. False where it took too long.
  [[nodiscard]] bool Wait();

 private:
  using SharedBlock = std::shared_ptr<const Block>;

  void Loop();
  SharedBlock Next();
  bool Send(const Block& block);
  void SendNow(const Block& block);
  void SendWhole(const Block& block);
  void SendWhatIsMissing(const Block& block);
  void WaitForEnd(const Block& block);
  void NoteSent(const SharedBlock& block);
  void NoteFailed(const std::string& trouble);
  void PutBack(SharedBlock block);
  bool GiveToSpool(const Block& block, bool has_to_be_kept = false);
  std::optional<Block> TellLost();
  void SpillQueue();
  [[nodiscard]] bool IsIdle() const;
  [[nodiscard]] bool IsFull(std::size_t bytes) const;
  [[nodiscard]] bool IsAwayTooLong() const;

  Setup setup_;
  Console& console_;
  std::optional<ClickHouseClient> client_;
  std::optional<Spool> spool_;
  std::uint64_t from_before_ = 0;  // the last block that another process has left
  std::uint64_t next_ = 1;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<SharedBlock> queue_;
  std::size_t queue_size_ = 0;  // bytes
  SharedBlock sending_;         // at work
  bool ending_ = false;
  std::string trouble_;           // that the last try had
  Clock::time_point away_since_;  // with trouble
  Clock::time_point told_at_;     // of it
  bool told_spool_ = false;       // that it cannot be written

  // Of the thread.
  std::uint64_t failed_ = 0;  // the block that was tried last, in vain
  bool has_begun_ = false;
  bool is_all_there_ = false;
  std::thread thread_;
};

}  // namespace flow::host
