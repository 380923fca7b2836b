// SPDX-License-Identifier: Apache-2.0
#include "host/command/open_keepers.h"

#include <fmt/format.h>
#include <unistd.h>
#include <zlib.h>

#include <fstream>
#include <utility>
#include <vector>

#include "host/base/build_text.h"
#include "host/base/error.h"
#include "host/command/listen_ports.h"
#include "host/scale/clickhouse_keeper.h"
#include "host/scale/kafka_producer.h"
#include "host/scale/line_file.h"
#include "host/scale/message_keeper.h"
#include "host/store/store.h"

namespace flow::host {
namespace {

// A number of 62 bits from two sums that have nothing in common; no adversary picks captures.
class Digest {
 public:
  void Add(std::string_view bytes) {
    const auto* const data = reinterpret_cast<const Bytef*>(bytes.data());
    crc_ = crc32_z(crc_, data, bytes.size());
    adler_ = adler32_z(adler_, data, bytes.size());
    size_ += bytes.size();
  }
  // The first bit tells it from the start time of a collector.
  [[nodiscard]] std::uint64_t Value() const {
    constexpr std::uint64_t kReplayed = std::uint64_t{1} << 63;
    constexpr std::uint64_t kSpread = 0x9E37'79B9'7F4A'7C15;
    return kReplayed | ((std::uint64_t{crc_} << 31 ^ adler_ ^ size_ * kSpread) & ~kReplayed);
  }

 private:
  uLong crc_ = 0;
  uLong adler_ = 1;
  std::uint64_t size_ = 0;
};

void AddFile(const std::string& path, Digest* digest) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> bytes(std::size_t{1} << 20);
  while (file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())) || file.gcount() > 0) {
    digest->Add({bytes.data(), static_cast<std::size_t>(file.gcount())});
  }
}

std::string CollectorName(const std::string& given, bool is_replay) {
  if (!given.empty()) return given;
  if (is_replay) return "replay";
  char name[256] = "";
  gethostname(name, sizeof(name) - 1);
  return name;
}

}  // namespace

ReplayedRun RunOf(const MeterOptions& options, const std::vector<std::string>& captures) {
  Digest settings;
  for (const Network& network : options.home) {
    settings.Add(fmt::format(" {}/{}", network.address.Text(), network.prefix));
  }
  for (const ExtraPort& port : options.extra_ports) {
    settings.Add(fmt::format(" {}={}", port.protocol, port.port));
  }
  Digest digest;
  for (const std::string& path : captures) {
    if (path == "-") {
      throw UsageError(
          "--clickhouse: standard input cannot be told from what was replayed before; give files");
    }
    AddFile(path, &digest);
  }
  return {digest.Value(), fmt::format("{:x}", settings.Value()), options.instances == 1};
}

Keepers::Keepers(StoreOptions store, ClickHouseOptions clickhouse, const MessageOptions& messages,
                 MeterSetup& setup, Console& console, const ReplayedRun* replayed) {
  if (store.directory.empty() && clickhouse.url.empty() && !messages.Any()) return;
  setup.HearRecords();
  if (!clickhouse.url.empty() || !messages.kafka.brokers.empty()) setup.NoteNumbers();
  const auto& groups = setup.catalog().groups();
  const std::string program = fmt::format("flowhost {}", BuildText());
  if (!store.directory.empty()) {
    store.program = program;
    store.home = setup.site_settings().home;
    store.waits = replayed != nullptr;
    auto made = std::make_unique<Store>(store, groups, setup.stand_ins(), console);
    store_ = made.get();
    keepers_.push_back(std::move(made));
  }
  const bool waits = replayed != nullptr;
  clickhouse.collector = CollectorName(clickhouse.collector, waits);
  if (!clickhouse.url.empty()) {
    KeeperRun run{program, static_cast<std::uint64_t>(NowMicros()), false, true};
    if (replayed != nullptr) {
      run = {fmt::format("{} {}", program, replayed->settings), replayed->id, true,
             replayed->is_repeatable};
    }
    keepers_.push_back(
        std::make_unique<ClickHouseKeeper>(clickhouse, run, groups, setup.stand_ins(), console));
  }
  sending_ = {clickhouse.collector, waits ? replayed->id : static_cast<std::uint64_t>(NowMicros())};
  if (!messages.flows.empty()) {
    const std::string name = messages.flows == "-" ? "standard output" : messages.flows;
    Add(name, std::make_unique<LineFile>(messages.flows), waits, setup, console);
  }
  if (!messages.kafka.brokers.empty()) {
    auto producer = std::make_unique<KafkaProducer>(messages.kafka, console);
    kafka_ = producer.get();
    Add("Kafka", std::move(producer), waits, setup, console);
  }
}

void Keepers::Add(std::string name, std::unique_ptr<MessageSink> sink, bool waits,
                  MeterSetup& setup, Console& console) {
  keepers_.push_back(std::make_unique<MessageKeeper>(std::move(name), sending_, std::move(sink),
                                                     waits, setup.catalog().groups(),
                                                     setup.stand_ins(), console));
}

std::vector<Keeper*> Keepers::all() const {
  std::vector<Keeper*> all;
  for (const auto& keeper : keepers_) all.push_back(keeper.get());
  return all;
}

std::vector<std::string> Keepers::FinishBy(Writer::Clock::time_point deadline) const {
  std::vector<std::string> late;
  for (const auto& keeper : keepers_) {
    if (!keeper->FinishBy(deadline)) late.emplace_back(keeper->name());
  }
  return late;
}

}  // namespace flow::host
