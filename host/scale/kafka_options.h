// SPDX-License-Identifier: Apache-2.0
// Which brokers of Kafka get messages, and how.
#pragma once

#include <string>

namespace flow::host {

struct KafkaOptions {
  std::string brokers;              // HOST:PORT,HOST:PORT; empty for none
  std::string topics = "flowhost";  // in front of kTopicNames
  std::string settings_file;        // lines NAME=VALUE of librdkafka
  bool as_protobuf = false;         // in place of JSON
};

}  // namespace flow::host
