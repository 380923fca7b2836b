// SPDX-License-Identifier: Apache-2.0
#include "host/command/message_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <string>

#include "host/command/argument_checks.h"
#include "host/scale/kafka_producer.h"

namespace flow::host {

void AddMessageOptions(CLI::App* app, MessageOptions* options, OutputOptions* output) {
  app->add_option("--flows", options->flows,
                  "Write every flow as a line of JSON, a direction each; - for standard output, "
                  "which has no summaries then")
      ->type_name("FILE");
  app->final_callback([options, output] {
    if (options->flows != "-") return;
    output->has_summary = false;
    const bool is_taken = std::ranges::any_of(output->destinations, &Destination::IsStandardOutput);
    if (is_taken) throw CLI::ValidationError("--flows", "standard output is another output's");
  });
  CLI::Option* const kafka =
      app->add_option("--kafka", options->kafka.brokers,
                      KafkaProducer::IsBuiltIn()
                          ? "Send flows, counters and exporters' health to a Kafka as JSON; listen "
                            "tells other collectors of templates there, too"
                          : "Send flows, counters and exporters' health to a Kafka (this build "
                            "cannot)")
          ->type_name("HOST:PORT,...");
  app->add_option("--kafka-topics", options->kafka.topics,
                  "What the topics' names begin with, in front of .flows, .counters, .health "
                  "and .templates (default: flowhost)")
      ->type_name("NAME")
      ->check(TopicName())
      ->needs(kafka);
  app->add_option("--kafka-format", options->kafka.as_protobuf,
                  "json, or protobuf by flowhost.proto, which is installed (default: json)")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, std::string>{{"json", "false"}, {"protobuf", "true"}}))
      ->type_name("FORMAT")
      ->needs(kafka);
  app->add_option("--kafka-settings", options->kafka.settings_file,
                  "File with settings of librdkafka, NAME=VALUE a line, as for TLS and passwords")
      ->type_name("FILE")
      ->needs(kafka);
}

}  // namespace flow::host
