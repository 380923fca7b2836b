// SPDX-License-Identifier: Apache-2.0
// A build without librdkafka.
#include "host/base/error.h"
#include "host/scale/kafka_producer.h"

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
void KafkaProducer::Flush() {}
void KafkaProducer::End() {}

}  // namespace flow::host
