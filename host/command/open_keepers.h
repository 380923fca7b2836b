// SPDX-License-Identifier: Apache-2.0
// Who keeps what a run meters.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/command/message_line.h"
#include "host/command/meter_setup.h"
#include "host/period/keeper.h"
#include "host/scale/clickhouse_server.h"
#include "host/scale/flow_blocks.h"
#include "host/scale/message.h"
#include "host/store/store_options.h"

namespace flow::host {

class KafkaProducer;
class Store;

// Captures that are kept in a ClickHouse: replayed again they are the same run, which goes on where
// it ended early, by the same program with the same settings.
struct ReplayedRun {
  std::uint64_t id = 0;
  std::string settings;
  bool is_repeatable = true;  // block by block
};
ReplayedRun RunOf(const MeterOptions& options, const std::vector<std::string>& captures);

class Keepers {
 public:
  // Opens those that the options ask for, before the lanes. HostError when one cannot be opened,
  // UsageError where its options cannot be right. `replayed` is null of a run that is live: what a
  // keeper cannot take in time is let go; else whoever counts waits.
  Keepers(StoreOptions store, ClickHouseOptions clickhouse, const MessageOptions& messages,
          MeterSetup& setup, Console& console, const ReplayedRun* replayed);

  [[nodiscard]] bool empty() const { return keepers_.empty(); }
  [[nodiscard]] std::vector<Keeper*> all() const;
  // Null where nothing is kept in one, or sent to one.
  [[nodiscard]] const Store* store() const { return store_; }
  [[nodiscard]] KafkaProducer* kafka() const { return kafka_; }
  // What this run is called.
  [[nodiscard]] const Sending& sending() const { return sending_; }

  // FinishBy gives the names of those that are not done by the deadline.
  [[nodiscard]] std::vector<std::string> FinishBy(Writer::Clock::time_point deadline) const;

 private:
  void Add(std::string name, std::unique_ptr<MessageSink> sink, bool waits, MeterSetup& setup,
           Console& console);

  std::vector<std::unique_ptr<Keeper>> keepers_;
  const Store* store_ = nullptr;    // one of them
  KafkaProducer* kafka_ = nullptr;  // of one of them
  Sending sending_;
};

}  // namespace flow::host
