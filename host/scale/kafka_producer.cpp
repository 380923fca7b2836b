// SPDX-License-Identifier: Apache-2.0
#include "host/scale/kafka_producer.h"

#include <fmt/format.h>
#include <librdkafka/rdkafka.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sstream>
#include <utility>

#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/memory_budget.h"
#include "host/base/printable.h"
#include "host/scale/json_row.h"
#include "host/scale/proto_row.h"

namespace flow::host {
namespace {

using Settings = std::unique_ptr<rd_kafka_conf_t, decltype(&rd_kafka_conf_destroy)>;

void Set(rd_kafka_conf_t* settings, const std::string& name, const std::string& value,
         const std::string& where) {
  char reason[512] = "";
  if (rd_kafka_conf_set(settings, name.c_str(), value.c_str(), reason, sizeof(reason)) !=
      RD_KAFKA_CONF_OK) {
    throw HostError(fmt::format("{}: {}", where, reason));
  }
}

void ReadSettings(const std::string& path, rd_kafka_conf_t* settings) {
  const auto text = ReadFile(path);
  if (!text) throw HostError(fmt::format("{}: {}", path, FileTrouble(errno)));
  std::istringstream lines(*text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line.front() == '#') continue;
    const std::string where = fmt::format("{}, line {}", path, number);
    const std::size_t at = line.find('=');
    if (at == std::string::npos) throw HostError(where + ": no NAME=VALUE");
    Set(settings, line.substr(0, at), line.substr(at + 1), where);
  }
}

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
  // Its threads block all signals; this one has a thread give up what it may, see capabilities.cpp.
  static rd_kafka_resp_err_t OnThread(rd_kafka_t* /*producer*/, rd_kafka_thread_type_t /*type*/,
                                      const char* /*name*/, void* /*self*/) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGRTMAX - 1);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    return RD_KAFKA_RESP_ERR_NO_ERROR;
  }
  static rd_kafka_resp_err_t OnNew(rd_kafka_t* producer, const rd_kafka_conf_t* /*settings*/,
                                   void* /*self*/, char* /*reason*/, std::size_t /*size*/) {
    return rd_kafka_interceptor_add_on_thread_start(producer, "flowhost", OnThread, nullptr);
  }
  static void OnLog(const rd_kafka_t* /*producer*/, int /*level*/, const char* /*facility*/,
                    const char* /*text*/) {}  // trouble comes by OnTrouble
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
    topics_[i].reset(rd_kafka_topic_new(producer_.get(), name.c_str(), nullptr));
    if (!topics_[i]) {
      throw HostError(
          fmt::format("Kafka topic {}: {}", name, rd_kafka_err2str(rd_kafka_last_error())));
    }
  }
}

void KafkaProducer::Configure(const KafkaOptions& options) {
  Settings settings(rd_kafka_conf_new(), &rd_kafka_conf_destroy);
  const std::pair<const char*, std::string> ours[] = {
      {"client.id", "flowhost"},
      {"compression.type", "lz4"},
      {"linger.ms", "100"},
      {"queue.buffering.max.messages", "2000000"},
      {"queue.buffering.max.kbytes", QueueSize()},
      {"log.connection.close", "false"},
  };
  for (const auto& [name, value] : ours) Set(settings.get(), name, value, "Kafka");
  if (!options.settings_file.empty()) ReadSettings(options.settings_file, settings.get());
  // These are not to be chosen: each message once, and in order.
  Set(settings.get(), "bootstrap.servers", options.brokers, "--kafka");
  Set(settings.get(), "enable.idempotence", "true", "Kafka");
  rd_kafka_conf_set_dr_msg_cb(settings.get(), Calls::OnReport);
  rd_kafka_conf_set_error_cb(settings.get(), Calls::OnTrouble);
  rd_kafka_conf_set_log_cb(settings.get(), Calls::OnLog);
  rd_kafka_conf_set_opaque(settings.get(), this);
  rd_kafka_conf_interceptor_add_on_new(settings.get(), "flowhost", Calls::OnNew, nullptr);
  char reason[512] = "";
  producer_.reset(rd_kafka_new(RD_KAFKA_PRODUCER, settings.get(), reason, sizeof(reason)));
  if (!producer_) throw HostError(fmt::format("Kafka: {}", reason));
  settings.release();  // the producer's now
}

KafkaProducer::~KafkaProducer() {
  rd_kafka_purge(producer_.get(), RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
}

bool KafkaProducer::Put(Topic topic, std::string_view key, std::string_view message) {
  constexpr int kTurn = 100;  // milliseconds between two looks at gives_up_
  rd_kafka_topic_t* const to = topics_[static_cast<std::size_t>(topic)].get();
  for (;;) {
    // It copies, whatever the type says.
    const int failed = rd_kafka_produce(to, RD_KAFKA_PARTITION_UA, RD_KAFKA_MSG_F_COPY,
                                        const_cast<char*>(message.data()), message.size(),
                                        key.data(), key.size(), nullptr);
    if (failed == 0) return true;
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
