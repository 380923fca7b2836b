// SPDX-License-Identifier: Apache-2.0
#include "host/scale/kafka_reader.h"

#include <fmt/format.h>
#include <librdkafka/rdkafka.h>

#include <utility>

#include "host/base/error.h"
#include "host/scale/kafka_settings.h"

namespace flow::host {

void KafkaReader::Close::operator()(rd_kafka_s* consumer) const { rd_kafka_destroy(consumer); }
void KafkaReader::Close::operator()(rd_kafka_topic_s* topic) const {
  rd_kafka_topic_destroy(topic);
}
void KafkaReader::Close::operator()(rd_kafka_queue_s* queue) const {
  rd_kafka_queue_destroy(queue);
}

KafkaReader::KafkaReader(const KafkaOptions& options, std::string topic)
    : topic_(std::move(topic)) {
  const std::pair<const char*, std::string> ours[] = {
      {"queued.max.messages.kbytes", "4096"},
      {"fetch.error.backoff.ms", "100"},
  };
  KafkaSettings settings = NewKafkaSettings(options, ours);
  SetKafka(settings.get(), "enable.partition.eof", "true", "Kafka");
  SetKafka(settings.get(), "auto.offset.reset", "earliest", "Kafka");
  char reason[512] = "";
  consumer_.reset(rd_kafka_new(RD_KAFKA_CONSUMER, settings.get(), reason, sizeof(reason)));
  if (!consumer_) throw HostError(fmt::format("Kafka: {}", reason));
  settings.release();  // the consumer's now
  handle_.reset(rd_kafka_topic_new(consumer_.get(), topic_.c_str(), nullptr));
  queue_.reset(rd_kafka_queue_new(consumer_.get()));
  if (!handle_ || !queue_) throw HostError(fmt::format("Kafka topic {} cannot be read", topic_));
}

KafkaReader::~KafkaReader() {
  for (std::int32_t i = 0; i < partitions_; ++i) rd_kafka_consume_stop(handle_.get(), i);
}

// A topic may be made later, and get more partitions.
void KafkaReader::LookForPartitions() {
  using namespace std::chrono_literals;
  constexpr int kMostWait = 500;  // milliseconds
  if (std::chrono::steady_clock::now() < next_look_) return;
  const rd_kafka_metadata_t* found = nullptr;
  if (rd_kafka_metadata(consumer_.get(), 0, handle_.get(), &found, kMostWait) ==
      RD_KAFKA_RESP_ERR_NO_ERROR) {
    const std::int32_t there = found->topic_cnt == 1 ? found->topics[0].partition_cnt : 0;
    for (; partitions_ < there; ++partitions_) {
      rd_kafka_consume_start_queue(handle_.get(), partitions_, RD_KAFKA_OFFSET_BEGINNING,
                                   queue_.get());
    }
    knows_partitions_ = true;
    rd_kafka_metadata_destroy(found);
  }
  next_look_ = std::chrono::steady_clock::now() + (partitions_ > 0 ? 30s : 1s);
}

void KafkaReader::Poll(std::chrono::milliseconds most, const Visit& visit) {
  LookForPartitions();
  rd_kafka_poll(consumer_.get(), 0);
  auto wait = static_cast<int>(most.count());
  constexpr int kMostAtOnce = 1000;
  for (int i = 0; i < kMostAtOnce; ++i) {
    rd_kafka_message_t* const message = rd_kafka_consume_queue(queue_.get(), wait);
    if (message == nullptr) return;
    wait = 0;
    if (message->err == RD_KAFKA_RESP_ERR_NO_ERROR) {
      visit({static_cast<const char*>(message->payload), message->len});
    } else if (message->err == RD_KAFKA_RESP_ERR__PARTITION_EOF) {
      ended_.insert(message->partition);
    } else if (errors_.insert(message->err).second) {
      trouble_ = rd_kafka_err2str(message->err);
    }
    rd_kafka_message_destroy(message);
  }
}

}  // namespace flow::host
