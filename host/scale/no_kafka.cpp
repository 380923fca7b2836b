// SPDX-License-Identifier: Apache-2.0
// A build without librdkafka.
#include "host/base/error.h"
#include "host/scale/kafka_producer.h"
#include "host/scale/kafka_reader.h"

namespace flow::host {

bool KafkaProducer::IsBuiltIn() { return false; }

void KafkaProducer::Close::operator()(rd_kafka_s* /*producer*/) const {}
void KafkaProducer::Close::operator()(rd_kafka_topic_s* /*topic*/) const {}

KafkaProducer::KafkaProducer(const KafkaOptions& /*options*/, Console& console)
    : MessageSink(nullptr), console_(console) {
  throw HostError("this build of flowhost has no Kafka: it was made without librdkafka");
}
KafkaProducer::~KafkaProducer() = default;

bool KafkaProducer::Put(Topic /*topic*/, std::string_view /*key*/, std::string_view /*message*/) {
  return false;
}
bool KafkaProducer::Post(Topic /*topic*/, std::string_view /*key*/, std::string_view /*message*/) {
  return false;
}
void KafkaProducer::Flush() {}
void KafkaProducer::End() {}

void KafkaReader::Close::operator()(rd_kafka_s* /*consumer*/) const {}
void KafkaReader::Close::operator()(rd_kafka_topic_s* /*topic*/) const {}
void KafkaReader::Close::operator()(rd_kafka_queue_s* /*queue*/) const {}

KafkaReader::KafkaReader(const KafkaOptions& /*options*/, std::string topic)
    : topic_(std::move(topic)) {
  throw HostError("this build of flowhost has no Kafka: it was made without librdkafka");
}

KafkaReader::~KafkaReader() = default;

void KafkaReader::Poll(std::chrono::milliseconds /*most*/, const Visit& /*visit*/) {}

}  // namespace flow::host
