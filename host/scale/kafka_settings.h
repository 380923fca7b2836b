// SPDX-License-Identifier: Apache-2.0
// What whoever talks to a Kafka by librdkafka has in common.
#pragma once

#include <librdkafka/rdkafka.h>

#include <memory>
#include <span>
#include <string>
#include <utility>

#include "host/scale/kafka_options.h"

namespace flow::host {

using KafkaSettings = std::unique_ptr<rd_kafka_conf_t, decltype(&rd_kafka_conf_destroy)>;

// `ours` may be changed by the settings of the user. HostError for what librdkafka does not take.
KafkaSettings NewKafkaSettings(const KafkaOptions& options,
                               std::span<const std::pair<const char*, std::string>> ours);

// `where` is for the error.
void SetKafka(rd_kafka_conf_t* settings, const std::string& name, const std::string& value,
              const std::string& where);

}  // namespace flow::host
