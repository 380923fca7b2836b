// SPDX-License-Identifier: Apache-2.0
// sFlow version 5: up to 7 flow samples, each with the head of an Ethernet frame. Datagrams are
// numbered per agent, samples per source; a source is an interface.
#include <algorithm>

#include "bench/flowgen/exporter.h"
#include "bench/flowgen/wire_writer.h"

namespace flow::gen {
namespace {

constexpr std::uint64_t kSamples = 7;
constexpr std::uint32_t kFrameHead = 128;
constexpr std::uint32_t kChecksum = 4;  // at the end of a frame, counted but not sampled
constexpr std::uint32_t kEthernetHeader = 14;
constexpr std::uint32_t kIpHeader = 20;
constexpr std::uint8_t kHome[] = {2, 0, 0, 0, 0, 1};
constexpr std::uint8_t kWorld[] = {2, 0, 0, 0, 0, 2};

void WriteTransport(const Flow& f, std::uint16_t length, WireWriter* wire) {
  switch (f.protocol) {
    case kTcp:
      wire->U16(f.source_port).U16(f.destination_port).U32(1).U32(1);
      wire->U8(0x50).U8(f.tcp_flags).U16(0xFFFF).U32(0);
      break;
    case kUdp:
      wire->U16(f.source_port).U16(f.destination_port).U16(length).U16(0);
      break;
    default:
      wire->U8(8).U8(0).U16(0).U32(1);  // an echo request
  }
}

// WriteFrame writes the first `size` bytes of a frame with an IPv4 packet of `length` bytes.
void WriteFrame(const Flow& f, std::uint32_t length, std::uint32_t size, WireWriter* wire) {
  const std::size_t end = wire->Size() + size;
  wire->Raw(f.input > f.output ? kHome : kWorld).Raw(f.input > f.output ? kWorld : kHome);
  wire->U16(0x0800);
  wire->U8(0x45).U8(0).U16(static_cast<std::uint16_t>(length)).U32(0);
  wire->U8(64).U8(f.protocol).U16(0).U32(f.source).U32(f.destination);
  WriteTransport(f, static_cast<std::uint16_t>(length - kIpHeader), wire);
  wire->Zeros(end - wire->Size());
}

class SFlowExporter : public Exporter {
 public:
  SFlowExporter(std::uint32_t number, std::uint32_t agent, std::uint32_t sampling_rate)
      : number_(number), agent_(agent), rate_(sampling_rate) {}

  void Write(std::uint64_t records, TrafficModel* traffic, Datagram* out) override {
    out->records = static_cast<std::uint32_t>(std::min(records, kSamples));
    WireWriter wire(out->payload.data());
    wire.U32(5).U32(1).U32(agent_).U32(number_).U32(++sequence_).U32(out->when.Uptime());
    wire.U32(out->records);
    for (std::uint32_t i = 0; i < out->records; ++i) {
      out->bytes += std::uint64_t{WriteSample(traffic->Next(), &wire)} * rate_;
      out->packets += rate_;
    }
    out->size = wire.Size();
  }

 private:
  // WriteSample answers with the length of the sampled frame.
  std::uint32_t WriteSample(const Flow& flow, WireWriter* wire) {
    const std::uint32_t length = std::max(flow.bytes / flow.packets, 46U);  // Ethernet's least
    const std::uint32_t frame = kEthernetHeader + length + kChecksum;
    const std::uint32_t head = std::min(frame - kChecksum, kFrameHead);
    const std::uint32_t padded = (head + 3) / 4 * 4;
    const std::uint32_t sequence = ++samples_[flow.input];
    wire->U32(1).U32(32 + 8 + 16 + padded);
    wire->U32(sequence).U32(flow.input).U32(rate_).U32(sequence * rate_).U32(0);
    wire->U32(flow.input).U32(flow.output).U32(1);
    wire->U32(1).U32(16 + padded).U32(1).U32(frame).U32(kChecksum).U32(head);
    WriteFrame(flow, length, head, wire);
    wire->PadTo4();
    return frame;
  }

  std::uint32_t number_;
  std::uint32_t agent_;
  std::uint32_t rate_;
  std::uint32_t sequence_ = 0;
  std::array<std::uint32_t, kInterfaces + 1> samples_{};
};

}  // namespace

std::unique_ptr<Exporter> NewSFlowExporter(std::uint32_t number, std::uint32_t agent,
                                           std::uint32_t sampling_rate) {
  return std::make_unique<SFlowExporter>(number, agent, sampling_rate);
}

}  // namespace flow::gen
