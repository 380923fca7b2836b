// SPDX-License-Identifier: Apache-2.0
#include "host/command/shared_templates.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "host/base/console.h"
#include "host/base/number_text.h"
#include "host/command/listen_ports.h"
#include "host/scale/kafka_producer.h"

namespace flow::host {
namespace {

constexpr auto kTemplates = static_cast<std::size_t>(Topic::kTemplates);

}  // namespace

SharedTemplates::SharedTemplates(const KafkaOptions& options, const Keepers& keepers,
                                 MeterSetup& setup, Console& console)
    : producer_(keepers.kafka()),
      setup_(setup),
      console_(console),
      book_(keepers.sending().collector, keepers.sending().run) {
  if (producer_ == nullptr) return;
  reader_.emplace(options, fmt::format("{}.{}", options.topics, kTopicNames[kTemplates]));
}

void SharedTemplates::Hear() {
  if (!reader_) return;
  // Exporters over IPv6 have stand-ins, which differ from collector to collector.
  const auto note = [this](Lesson lesson) {
    IpAddress& address = lesson.owner.exporter.address;
    address = setup_.stand_ins().RealOf(address);
    if (StandIns::IsOne(address)) return;
    lesson.told = NowMicros();
    book_.Note(std::move(lesson));
  };
  setup_.OnUsed([this](const Endpoint& exporter) {
    book_.NoteUsed({setup_.stand_ins().RealOf(exporter.address), exporter.port});
  });
  setup_.OnRate(
      [note](const TemplateOwner& owner, std::uint16_t id, std::span<const std::uint8_t> datagram) {
        note({Lesson::Kind::kRate, owner, {id}, {datagram.begin(), datagram.end()}, 0, "", 0});
      });
  setup_.channels().Observe(
      [note](int lane, const GUID& channel, const std::vector<std::uint8_t>& message) {
        if (lane == 0 || !IsTemplateChannel(channel)) return;  // ours is told by others
        if (auto lesson = LessonOf(message, HasDomain(channel))) note(std::move(*lesson));
      });
}

void SharedTemplates::Start(const std::function<bool()>& is_over) {
  using namespace std::chrono_literals;
  if (!reader_) return;
  constexpr auto kMostWait = 5s;
  thread_ = std::thread([this] { Loop(); });
  const auto deadline = std::chrono::steady_clock::now() + kMostWait;
  while (!has_read_all_ && !is_over()) {
    if (std::chrono::steady_clock::now() > deadline) {
      console_.Error(fmt::format(
          "Kafka topic {} could not be read to its end within {} seconds: exporters that come from "
          "another collector may have to repeat their templates",
          reader_->topic(), kMostWait.count()));
      return;
    }
    std::this_thread::sleep_for(10ms);
  }
}

void SharedTemplates::Loop() {
  constexpr std::chrono::milliseconds kTurn(50);
  while (!ends_) {
    reader_->Poll(kTurn, [this](std::string_view message) { Take(message); });
    if (const auto trouble = reader_->TakeTrouble()) {
      console_.Error(fmt::format("Kafka topic {}: {}", reader_->topic(), *trouble));
    }
    if (!has_read_all_ && reader_->HasReadAll()) {
      if (templates_ + rates_ > 0) {
        console_.Notice(fmt::format("{} templates and {} sampling rates learnt from Kafka topic {}",
                                    Thousands(templates_), Thousands(rates_), reader_->topic()));
      }
      has_read_all_ = true;
    }
    TellNow();
  }
  TellNow();
}

void SharedTemplates::Take(std::string_view message) {
  constexpr std::chrono::milliseconds kMailWait(1);
  const Timestamp now = NowMicros();
  const auto lesson = Lesson::FromJson(message);
  if (!lesson || StandIns::IsOne(lesson->owner.exporter.address)) return;
  if (!book_.IsNews(*lesson, now)) return;
  Endpoint exporter = lesson->owner.exporter;
  if (exporter.address.family() == Family::kIpv6) {
    const auto stand_in = setup_.stand_ins().Of(exporter.address, now / kMicrosPerSecond);
    if (!stand_in) return;
    exporter.address = *stand_in;
  }
  // Full mailboxes would drop it, and nobody tells it again that soon.
  while (!setup_.channels().HasRoom() && !ends_) std::this_thread::sleep_for(kMailWait);
  if (lesson->kind == Lesson::Kind::kRate) {
    ++rates_;
    return setup_.channels().Teach(0, exporter, lesson->bytes);
  }
  templates_ += lesson->ids.size();
  setup_.channels().Deliver(
      0, lesson->owner.domain ? CHANNELID_NETFLOW_DOMAIN_TEMPLATES : CHANNELID_NETFLOW_TEMPLATES,
      ChannelMessageOf(*lesson, exporter.address));
}

void SharedTemplates::TellNow() {
  for (const auto& lesson : book_.ToTell(NowMicros())) {
    if (!producer_->Post(Topic::kTemplates, lesson->Key(), lesson->ToJson())) {
      book_.GiveBack(lesson);
    }
  }
}

void SharedTemplates::End() {
  ends_ = true;
  if (thread_.joinable()) thread_.join();
}

}  // namespace flow::host
