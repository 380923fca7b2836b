// SPDX-License-Identifier: Apache-2.0
// A topic of a Kafka from its beginning, all partitions, and then what comes, by librdkafka. It is
// in no group: every reader reads all of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "host/scale/kafka_options.h"

// Of librdkafka.
struct rd_kafka_s;
struct rd_kafka_topic_s;
struct rd_kafka_queue_s;

namespace flow::host {

class KafkaReader {
 public:
  // HostError for settings that cannot be; brokers that cannot be reached are tried for as long as
  // it takes.
  KafkaReader(const KafkaOptions& options, std::string topic);
  ~KafkaReader();
  KafkaReader(const KafkaReader&) = delete;
  KafkaReader& operator=(const KafkaReader&) = delete;

  // Poll visits messages as they come, for at most about so long without any, and some of them.
  using Visit = std::function<void(std::string_view message)>;
  void Poll(std::chrono::milliseconds most, const Visit& visit);

  // Whether all that was there at the start has been read. A topic that is not there is empty.
  [[nodiscard]] bool HasReadAll() const {
    return knows_partitions_ && static_cast<std::size_t>(partitions_) == ended_.size();
  }
  [[nodiscard]] const std::string& topic() const { return topic_; }
  // What keeps it from reading, once for each kind.
  std::optional<std::string> TakeTrouble() { return std::exchange(trouble_, std::nullopt); }

 private:
  struct Close {
    void operator()(rd_kafka_s* consumer) const;
    void operator()(rd_kafka_topic_s* topic) const;
    void operator()(rd_kafka_queue_s* queue) const;
  };

  void LookForPartitions();

  std::string topic_;
  std::unique_ptr<rd_kafka_s, Close> consumer_;
  std::unique_ptr<rd_kafka_topic_s, Close> handle_;
  std::unique_ptr<rd_kafka_queue_s, Close> queue_;
  std::int32_t partitions_ = 0;  // that are read
  bool knows_partitions_ = false;
  std::set<std::int32_t> ended_;  // that have been read once
  std::set<int> errors_;          // that were met
  std::optional<std::string> trouble_;
  std::chrono::steady_clock::time_point next_look_;
};

}  // namespace flow::host
