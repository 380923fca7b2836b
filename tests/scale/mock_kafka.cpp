// SPDX-License-Identifier: Apache-2.0
// mock_kafka TOPIC...: librdkafka's mock cluster of one broker, for tests with real clients. Says
// where it is, obeys "down", "up" and "fail N" (so many requests to produce get no answer) on
// standard input, answering "ok", and ends with it.
#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

constexpr int kBroker = 1;
constexpr int kPartitions = 2;

void Obey(rd_kafka_mock_cluster_t* cluster, const std::string& word) {
  if (word == "down") rd_kafka_mock_broker_set_down(cluster, kBroker);
  if (word == "up") rd_kafka_mock_broker_set_up(cluster, kBroker);
  if (word == "fail") {
    int count = 0;
    std::cin >> count;
    constexpr int kProduce = 0;  // the protocol's number of this request
    for (; count > 0; --count) {
      rd_kafka_mock_push_request_errors(cluster, kProduce, 1, RD_KAFKA_RESP_ERR__TRANSPORT);
    }
  }
  std::cout << "ok" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  rd_kafka_conf_t* const settings = rd_kafka_conf_new();
  rd_kafka_conf_set_log_cb(settings, nullptr);
  rd_kafka_t* const client = rd_kafka_new(RD_KAFKA_PRODUCER, settings, nullptr, 0);
  rd_kafka_mock_cluster_t* const cluster = rd_kafka_mock_cluster_new(client, 1);
  if (cluster == nullptr) return EXIT_FAILURE;
  for (int i = 1; i < argc; ++i) {
    rd_kafka_mock_topic_create(cluster, argv[i], kPartitions, 1);
    for (int partition = 0; partition < kPartitions; ++partition) {
      rd_kafka_mock_partition_set_leader(cluster, argv[i], partition, kBroker);
    }
  }
  std::cout << rd_kafka_mock_cluster_bootstraps(cluster) << std::endl;
  for (std::string word; std::cin >> word;) Obey(cluster, word);
  rd_kafka_mock_cluster_destroy(cluster);
  rd_kafka_destroy(client);
}
