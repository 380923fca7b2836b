// SPDX-License-Identifier: Apache-2.0
#include "bench/flowgen/run.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace flow::gen {
namespace {

constexpr std::uint64_t kMinute = 60'000'000;  // in microseconds

std::unique_ptr<Exporter> NewExporter(const Options& options, std::uint32_t number) {
  switch (options.FormatOf(number)) {
    case Format::kNetflow5:
      return NewNetflow5Exporter(number);
    case Format::kNetflow9:
      return NewNetflow9Exporter(number);
    case Format::kIpfix:
      return NewIpfixExporter(number);
    case Format::kSFlow:
      return NewSFlowExporter(number, ExporterAddress(number), options.sampling_rate);
  }
  return nullptr;
}

// Flows that are drawn for one set of hosts. A minute begins and ends between two datagrams, so it
// may have one datagram's less than its share.
std::uint64_t RecordsAPeriod(const Options& options) {
  constexpr std::uint64_t kDatagram = 30;
  if (!options.fresh_hosts) return options.records;
  const std::uint64_t share = options.records / options.minutes;
  return share - std::min(share, kDatagram);
}

class Generator {
 public:
  Generator(const Options& options, std::uint64_t start_us, Output* output)
      : options_(options),
        start_us_(start_us),
        output_(output),
        traffic_(options.seed, options.hosts, RecordsAPeriod(options), options.realistic),
        burst_(options.write.empty() ? options.batch : 1),
        made_(options.exporters) {
    for (std::uint32_t i = 0; i < options.exporters; ++i) {
      exporters_.push_back(NewExporter(options, i));
    }
  }

  Result Run() {
    for (std::uint32_t exporter = 0; Left() > 0; exporter = (exporter + 1) % options_.exporters) {
      output_->Put(exporter, MakeBurst(exporter));
    }
    return result_;
  }

 private:
  [[nodiscard]] std::uint64_t Left() const {
    return options_.records - result_.put.records - result_.left_out.records;
  }

  std::span<const Datagram> MakeBurst(std::uint32_t exporter) {
    std::size_t made = 0;
    while (made < burst_.size() && Left() > 0) {
      Datagram* const datagram = &burst_[made];
      const Moment now = Now();
      if (options_.fresh_hosts) {
        traffic_.Period(static_cast<std::uint32_t>(now.since_start_us / kMinute));
      }
      exporters_[exporter]->Make(now, Left(), &traffic_, datagram);
      const bool drop = options_.drop_every != 0 && ++made_[exporter] % options_.drop_every == 0;
      (drop ? result_.left_out : result_.put).Add(*datagram);
      if (!drop) ++made;
    }
    return std::span(burst_).first(made);
  }

  // Records are spread evenly over the minutes.
  [[nodiscard]] Moment Now() const {
    const double part =
        static_cast<double>(options_.records - Left()) / static_cast<double>(options_.records);
    const auto since_start =
        static_cast<std::uint64_t>(part * static_cast<double>(options_.minutes * kMinute));
    return {start_us_ + since_start, since_start};
  }

  const Options& options_;
  std::uint64_t start_us_;
  Output* output_;
  TrafficModel traffic_;
  std::vector<Datagram> burst_;
  std::vector<std::uint64_t> made_;  // datagrams per exporter
  std::vector<std::unique_ptr<Exporter>> exporters_;
  Result result_;
};

}  // namespace

void Totals::Add(const Datagram& datagram) {
  ++datagrams;
  datagram_bytes += datagram.size;
  records += datagram.records;
  bytes += datagram.bytes;
  packets += datagram.packets;
}

Result Run(const Options& options, std::uint64_t start_us, Output* output) {
  return Generator(options, start_us, output).Run();
}

}  // namespace flow::gen
