// SPDX-License-Identifier: Apache-2.0
#include "host/scale/kafka_settings.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <sstream>

#include "host/base/error.h"
#include "host/base/files.h"

namespace flow::host {
namespace {

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
    SetKafka(settings, line.substr(0, at), line.substr(at + 1), where);
  }
}

// Its threads block all signals; this one has a thread give up what it may, see capabilities.cpp.
rd_kafka_resp_err_t OnThread(rd_kafka_t* /*client*/, rd_kafka_thread_type_t /*type*/,
                             const char* /*name*/, void* /*self*/) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGRTMAX - 1);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  return RD_KAFKA_RESP_ERR_NO_ERROR;
}

rd_kafka_resp_err_t OnNew(rd_kafka_t* client, const rd_kafka_conf_t* /*settings*/, void* /*self*/,
                          char* /*reason*/, std::size_t /*size*/) {
  return rd_kafka_interceptor_add_on_thread_start(client, "flowhost", OnThread, nullptr);
}

// Trouble comes by a callback of its own.
void OnLog(const rd_kafka_t* /*client*/, int /*level*/, const char* /*facility*/,
           const char* /*text*/) {}

}  // namespace

void SetKafka(rd_kafka_conf_t* settings, const std::string& name, const std::string& value,
              const std::string& where) {
  char reason[512] = "";
  if (rd_kafka_conf_set(settings, name.c_str(), value.c_str(), reason, sizeof(reason)) !=
      RD_KAFKA_CONF_OK) {
    throw HostError(fmt::format("{}: {}", where, reason));
  }
}

KafkaSettings NewKafkaSettings(const KafkaOptions& options,
                               std::span<const std::pair<const char*, std::string>> ours) {
  KafkaSettings settings(rd_kafka_conf_new(), &rd_kafka_conf_destroy);
  SetKafka(settings.get(), "client.id", "flowhost", "Kafka");
  SetKafka(settings.get(), "log.connection.close", "false", "Kafka");
  for (const auto& [name, value] : ours) SetKafka(settings.get(), name, value, "Kafka");
  if (!options.settings_file.empty()) ReadSettings(options.settings_file, settings.get());
  SetKafka(settings.get(), "bootstrap.servers", options.brokers, "--kafka");
  rd_kafka_conf_set_log_cb(settings.get(), OnLog);
  rd_kafka_conf_interceptor_add_on_new(settings.get(), "flowhost", OnNew, nullptr);
  return settings;
}

}  // namespace flow::host
