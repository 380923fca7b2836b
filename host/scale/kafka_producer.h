// SPDX-License-Identifier: Apache-2.0
// Messages to the topics of a Kafka, by librdkafka: each once and in order for its key, and counted
// as sent when all replicas have it.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <string>

#include "host/scale/kafka_options.h"
#include "host/scale/message.h"

// Of librdkafka.
struct rd_kafka_s;
struct rd_kafka_topic_s;

namespace flow::host {

class Console;

class KafkaProducer final : public MessageSink {
 public:
  // Whether this build can.
  static bool IsBuiltIn();

  // HostError for settings that cannot be; brokers that cannot be reached are tried for as long as
  // it takes. The console outlives it.
  KafkaProducer(const KafkaOptions& options, Console& console);
  ~KafkaProducer() override;

  [[nodiscard]] bool Wants(Topic /*topic*/) const override { return true; }
  bool Put(Topic topic, std::string_view key, std::string_view message) override;
  // Post is Put that does not wait; any thread.
  bool Post(Topic topic, std::string_view key, std::string_view message);
  void Flush() override;
  void End() override;
  [[nodiscard]] std::uint64_t Lost() const override { return lost_; }
  void GiveUp() override { gives_up_ = true; }

 private:
  struct Calls;  // what librdkafka calls
  struct Close {
    void operator()(rd_kafka_s* producer) const;
    void operator()(rd_kafka_topic_s* topic) const;
  };

  void Configure(const KafkaOptions& options);

  Console& console_;
  std::unique_ptr<rd_kafka_s, Close> producer_;
  std::array<std::unique_ptr<rd_kafka_topic_s, Close>, std::size(kTopicNames)> topics_;
  std::uint64_t lost_ = 0;
  bool is_away_ = false;  // no broker can be reached
  std::atomic<bool> gives_up_ = false;
};

}  // namespace flow::host
