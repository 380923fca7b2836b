// SPDX-License-Identifier: Apache-2.0
// What collectors tell each other of exporters by a topic of a Kafka, so that an exporter that
// moves from one to another is decoded there at once.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <thread>

#include "host/command/meter_setup.h"
#include "host/command/open_keepers.h"
#include "host/scale/kafka_reader.h"
#include "host/scale/lesson_book.h"

namespace flow::host {

class SharedTemplates {
 public:
  // Nothing is shared where there is no Kafka. All of them outlive it.
  SharedTemplates(const KafkaOptions& options, const Keepers& keepers, MeterSetup& setup,
                  Console& console);
  ~SharedTemplates() { End(); }
  SharedTemplates(const SharedTemplates&) = delete;
  SharedTemplates& operator=(const SharedTemplates&) = delete;

  // Hear takes note of what lanes learn; before MeterSetup::Start.
  void Hear();
  // Start has the lanes learn what the topic has, and returns then: after a few seconds in any
  // case, or when is_over says so. What comes later they learn as it comes.
  void Start(const std::function<bool()>& is_over);
  void End();

 private:
  void Loop();
  void Take(std::string_view message);
  void TellNow();

  KafkaProducer* producer_;  // null for none
  MeterSetup& setup_;
  Console& console_;
  LessonBook book_;
  std::optional<KafkaReader> reader_;
  std::size_t templates_ = 0;  // learnt from others, until the topic has been read
  std::size_t rates_ = 0;
  std::atomic<bool> has_read_all_ = false;
  std::atomic<bool> ends_ = false;
  std::thread thread_;
};

}  // namespace flow::host
