// SPDX-License-Identifier: Apache-2.0
#include "host/scale/kafka_producer.h"

#include <fmt/format.h>
#include <librdkafka/rdkafka.h>

#include <algorithm>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/base/printable.h"
#include "host/scale/json_row.h"
#include "host/scale/kafka_settings.h"
#include "host/scale/proto_row.h"

namespace flow::host {
namespace {

// Kilobytes of messages that wait.
std::string QueueSize() {
  constexpr std::uint64_t kLeast = 16 << 10;
  constexpr std::uint64_t kMost = 256 << 10;
  constexpr std::uint64_t kFlowsOfKilobyte = 16;
  return std::to_string(std::clamp(Shares().flows_waiting / kFlowsOfKilobyte, kLeast, kMost));
}

std::unique_ptr<MessageRow> RowFor(const KafkaOptions& options) {
  if (options.as_protobuf) return std::make_unique<ProtoRow>();
  return std::make_unique<JsonRow>();
}

}  // namespace

struct KafkaProducer::Calls {
  // Each message's end, from rd_kafka_poll.
  static void OnReport(rd_kafka_t* /*producer*/, const rd_kafka_message_t* message, void* self) {
    auto& producer = *static_cast<KafkaProducer*>(self);
    if (message->err == RD_KAFKA_RESP_ERR_NO_ERROR) {
      if (std::exchange(producer.is_away_, false))
        producer.console_.Notice("Kafka takes messages again");
    } else {
      ++producer.lost_;
    }
  }
  static void OnTrouble(rd_kafka_t* /*producer*/, int code, const char* reason, void* self) {
    auto& producer = *static_cast<KafkaProducer*>(self);
    const bool is_away = code == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN;
    if (is_away && std::exchange(producer.is_away_, true)) return;
    if (code == RD_KAFKA_RESP_ERR__TRANSPORT || code == RD_KAFKA_RESP_ERR__RESOLVE) return;
    producer.console_.Error(fmt::format("Kafka: {}", Printable(reason)));
  }
  // All that is told of an exporter's templates keeps its order, whatever it is about: its keys
  // begin with the exporter.
  static int PartitionOf(const rd_kafka_topic_t* topic, const void* key, std::size_t size,
                         int partitions, void* self, void* message) {
    const std::string_view text(static_cast<const char*>(key), size);
    return rd_kafka_msg_partitioner_consistent(topic, key, std::min(size, text.find(' ')),
                                               partitions, self, message);
  }
};

bool KafkaProducer::IsBuiltIn() { return true; }

void KafkaProducer::Close::operator()(rd_kafka_s* producer) const { rd_kafka_destroy(producer); }
void KafkaProducer::Close::operator()(rd_kafka_topic_s* topic) const {
  rd_kafka_topic_destroy(topic);
}

KafkaProducer::KafkaProducer(const KafkaOptions& options, Console& console)
    : MessageSink(RowFor(options)), console_(console) {
  Configure(options);
  for (std::size_t i = 0; i < topics_.size(); ++i) {
    const std::string name = fmt::format("{}.{}", options.topics, kTopicNames[i]);
    rd_kafka_topic_conf_t* const settings = rd_kafka_default_topic_conf_dup(producer_.get());
    if (i == static_cast<std::size_t>(Topic::kTemplates)) {
      rd_kafka_topic_conf_set_partitioner_cb(settings, Calls::PartitionOf);
    }
    topics_[i].reset(rd_kafka_topic_new(producer_.get(), name.c_str(), settings));
    if (!topics_[i]) {
      throw HostError(
          fmt::format("Kafka topic {}: {}", name, rd_kafka_err2str(rd_kafka_last_error())));
    }
  }
}

void KafkaProducer::Configure(const KafkaOptions& options) {
  const std::pair<const char*, std::string> ours[] = {
      {"compression.type", "lz4"},
      {"linger.ms", "100"},
      {"queue.buffering.max.messages", "2000000"},
      {"queue.buffering.max.kbytes", QueueSize()},
  };
  KafkaSettings settings = NewKafkaSettings(options, ours);
  // Not to be chosen: each message once, and in order.
  SetKafka(settings.get(), "enable.idempotence", "true", "Kafka");
  rd_kafka_conf_set_dr_msg_cb(settings.get(), Calls::OnReport);
  rd_kafka_conf_set_error_cb(settings.get(), Calls::OnTrouble);
  rd_kafka_conf_set_opaque(settings.get(), this);
  char reason[512] = "";
  producer_.reset(rd_kafka_new(RD_KAFKA_PRODUCER, settings.get(), reason, sizeof(reason)));
  if (!producer_) throw HostError(fmt::format("Kafka: {}", reason));
  settings.release();  // the producer's now
}

KafkaProducer::~KafkaProducer() {
  rd_kafka_purge(producer_.get(), RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
}

bool KafkaProducer::Post(Topic topic, std::string_view key, std::string_view message) {
  // It copies, whatever the type says.
  return rd_kafka_produce(topics_[static_cast<std::size_t>(topic)].get(), RD_KAFKA_PARTITION_UA,
                          RD_KAFKA_MSG_F_COPY, const_cast<char*>(message.data()), message.size(),
                          key.data(), key.size(), nullptr) == 0;
}

bool KafkaProducer::Put(Topic topic, std::string_view key, std::string_view message) {
  constexpr int kTurn = 100;  // milliseconds between two looks at gives_up_
  for (;;) {
    if (Post(topic, key, message)) return true;
    if (rd_kafka_last_error() != RD_KAFKA_RESP_ERR__QUEUE_FULL || gives_up_) return false;
    rd_kafka_poll(producer_.get(), kTurn);
  }
}

void KafkaProducer::Flush() { rd_kafka_poll(producer_.get(), 0); }

void KafkaProducer::End() {
  constexpr int kTurn = 100;
  while (!gives_up_ && rd_kafka_flush(producer_.get(), kTurn) != RD_KAFKA_RESP_ERR_NO_ERROR) {
  }
  lost_ += static_cast<std::uint64_t>(rd_kafka_outq_len(producer_.get()));
}

}  // namespace flow::host
