// SPDX-License-Identifier: Apache-2.0
// NetFlow version 9 and IPFIX: datagrams of 1,400 bytes, a template of 20 fields at the start and
// again every 1,000 datagrams. Version 9 numbers its datagrams, IPFIX counts the data records
// before each.
#include <algorithm>
#include <span>

#include "bench/flowgen/exporter.h"
#include "bench/flowgen/wire_writer.h"

namespace flow::gen {
namespace {

constexpr std::size_t kMaxSize = 1400;
constexpr std::size_t kSetHeader = 4;
constexpr std::uint16_t kTemplate = 256;
constexpr std::uint32_t kTemplateEvery = 1000;

struct Field {
  std::uint16_t type;
  std::uint16_t length;
};

// What a router exports; the two differ in the times: uptime, or milliseconds since 1970.
constexpr Field kNetflow9Fields[] = {{1, 4},  {2, 4},  {4, 1},  {5, 1},  {6, 1},  {7, 2},  {8, 4},
                                     {9, 1},  {10, 2}, {11, 2}, {12, 4}, {13, 1}, {14, 2}, {15, 4},
                                     {16, 2}, {17, 2}, {18, 4}, {21, 4}, {22, 4}, {48, 1}};
constexpr Field kIpfixFields[] = {{1, 4},  {2, 4},  {4, 1},  {5, 1},   {6, 1},   {7, 2},  {8, 4},
                                  {9, 1},  {10, 2}, {11, 2}, {12, 4},  {13, 1},  {14, 2}, {15, 4},
                                  {16, 2}, {17, 2}, {18, 4}, {153, 8}, {152, 8}, {48, 1}};

constexpr std::size_t RecordSize(std::span<const Field> fields) {
  std::size_t size = 0;
  for (const Field& field : fields) size += field.length;
  return size;
}

constexpr std::size_t TemplateSetSize(std::span<const Field> fields) {
  return kSetHeader + 4 + 4 * fields.size();
}

void WriteTemplate(std::uint16_t set_id, std::span<const Field> fields, WireWriter* wire) {
  wire->U16(set_id).U16(static_cast<std::uint16_t>(TemplateSetSize(fields)));
  wire->U16(kTemplate).U16(static_cast<std::uint16_t>(fields.size()));
  for (const Field& field : fields) wire->U16(field.type).U16(field.length);
}

// The fields up to the times, which both formats have.
void WriteCommonFields(const Flow& f, WireWriter* wire) {
  wire->U32(f.bytes).U32(f.packets).U8(f.protocol).U8(0).U8(f.tcp_flags);
  wire->U16(f.source_port).U32(f.source).U8(f.source_mask).U16(f.input);
  wire->U16(f.destination_port).U32(f.destination).U8(f.destination_mask).U16(f.output);
  wire->U32(f.next_hop).U16(f.source_as).U16(f.destination_as).U32(f.next_hop);
}

struct Netflow9 {
  static constexpr std::span<const Field> kFields = kNetflow9Fields;
  static constexpr std::size_t kHeader = 20;
  static constexpr std::uint16_t kTemplateSet = 0;

  static void WriteTimes(const Flow& f, const Moment& now, WireWriter* wire) {
    wire->U32(now.Uptime() - f.last_ago).U32(now.Uptime() - f.first_ago);
  }
  static void WriteHeader(const Moment& now, std::uint32_t sequence, std::uint32_t source,
                          std::size_t /*size*/, std::uint32_t records, WireWriter* wire) {
    wire->U16(9).U16(static_cast<std::uint16_t>(records)).U32(now.Uptime()).U32(now.Seconds());
    wire->U32(sequence).U32(source);
  }
  static std::uint32_t Advance(std::uint32_t /*records*/) { return 1; }
};

struct Ipfix {
  static constexpr std::span<const Field> kFields = kIpfixFields;
  static constexpr std::size_t kHeader = 16;
  static constexpr std::uint16_t kTemplateSet = 2;

  static void WriteTimes(const Flow& f, const Moment& now, WireWriter* wire) {
    wire->U64(now.time_us / 1000 - f.last_ago).U64(now.time_us / 1000 - f.first_ago);
  }
  static void WriteHeader(const Moment& now, std::uint32_t sequence, std::uint32_t source,
                          std::size_t size, std::uint32_t /*records*/, WireWriter* wire) {
    wire->U16(10).U16(static_cast<std::uint16_t>(size)).U32(now.Seconds());
    wire->U32(sequence).U32(source);
  }
  static std::uint32_t Advance(std::uint32_t records) { return records; }
};

template <class Protocol>
class TemplateExporter : public Exporter {
 public:
  explicit TemplateExporter(std::uint32_t number) : source_(number) {}

  void Write(std::uint64_t records, TrafficModel* traffic, Datagram* out) override {
    const Moment& now = out->when;
    WireWriter sets(out->payload.data() + Protocol::kHeader);
    const bool with_template = datagrams_++ % kTemplateEvery == 0;
    if (with_template) WriteTemplate(Protocol::kTemplateSet, Protocol::kFields, &sets);

    constexpr std::size_t kPadding = 3;
    const std::size_t room = kMaxSize - Protocol::kHeader - sets.Size() - kSetHeader - kPadding;
    out->records = static_cast<std::uint32_t>(std::min<std::uint64_t>(records, room / kRecord));
    const std::size_t padded = (out->records * kRecord + 3) / 4 * 4;
    sets.U16(kTemplate).U16(static_cast<std::uint16_t>(kSetHeader + padded));
    for (std::uint32_t i = 0; i < out->records; ++i) {
      const Flow flow = traffic->Next();
      WriteCommonFields(flow, &sets);
      Protocol::WriteTimes(flow, now, &sets);
      sets.U8(1);  // the sampler's id
      out->bytes += flow.bytes;
      out->packets += flow.packets;
    }
    sets.PadTo4();

    out->size = Protocol::kHeader + sets.Size();
    WireWriter header(out->payload.data());
    const std::uint32_t all_records = out->records + (with_template ? 1 : 0);
    Protocol::WriteHeader(now, sequence_, source_, out->size, all_records, &header);
    sequence_ += Protocol::Advance(out->records);
  }

 private:
  static constexpr std::size_t kRecord = RecordSize(Protocol::kFields);

  std::uint32_t source_;
  std::uint32_t sequence_ = 0;
  std::uint32_t datagrams_ = 0;
};

}  // namespace

std::unique_ptr<Exporter> NewNetflow9Exporter(std::uint32_t number) {
  return std::make_unique<TemplateExporter<Netflow9>>(number);
}
std::unique_ptr<Exporter> NewIpfixExporter(std::uint32_t number) {
  return std::make_unique<TemplateExporter<Ipfix>>(number);
}

}  // namespace flow::gen
