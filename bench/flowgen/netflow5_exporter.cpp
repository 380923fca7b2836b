// SPDX-License-Identifier: Apache-2.0
// NetFlow version 5: a header of 24 bytes and up to 30 records of 48. The sequence number is the
// count of flows before this datagram's.
#include <algorithm>

#include "bench/flowgen/exporter.h"
#include "bench/flowgen/wire_writer.h"

namespace flow::gen {
namespace {

constexpr std::uint64_t kRecords = 30;

class Netflow5Exporter : public Exporter {
 public:
  explicit Netflow5Exporter(std::uint32_t number) : engine_(static_cast<std::uint8_t>(number)) {}

  void Write(std::uint64_t records, TrafficModel* traffic, Datagram* out) override {
    const Moment& now = out->when;
    out->records = static_cast<std::uint32_t>(std::min(records, kRecords));
    WireWriter wire(out->payload.data());
    wire.U16(5).U16(static_cast<std::uint16_t>(out->records)).U32(now.Uptime());
    wire.U32(now.Seconds()).U32(static_cast<std::uint32_t>(now.time_us % 1'000'000 * 1000));
    wire.U32(sequence_).U8(0).U8(engine_).U16(0);
    for (std::uint32_t i = 0; i < out->records; ++i) {
      const Flow flow = traffic->Next();
      WriteRecord(flow, now.Uptime(), &wire);
      out->bytes += flow.bytes;
      out->packets += flow.packets;
    }
    out->size = wire.Size();
    sequence_ += out->records;
  }

 private:
  static void WriteRecord(const Flow& f, std::uint32_t uptime, WireWriter* wire) {
    wire->U32(f.source).U32(f.destination).U32(f.next_hop).U16(f.input).U16(f.output);
    wire->U32(f.packets).U32(f.bytes).U32(uptime - f.first_ago).U32(uptime - f.last_ago);
    wire->U16(f.source_port).U16(f.destination_port).U8(0).U8(f.tcp_flags).U8(f.protocol).U8(0);
    wire->U16(f.source_as).U16(f.destination_as).U8(f.source_mask).U8(f.destination_mask).U16(0);
  }

  std::uint8_t engine_;
  std::uint32_t sequence_ = 0;
};

}  // namespace

std::unique_ptr<Exporter> NewNetflow5Exporter(std::uint32_t number) {
  return std::make_unique<Netflow5Exporter>(number);
}

}  // namespace flow::gen
