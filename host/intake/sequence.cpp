#include "host/intake/sequence.h"

#include <absl/hash/hash.h>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

}  // namespace

void SequenceTracker::Take(const NumberedDatagram& datagram, SequenceGaps* gaps,
                           SequenceGaps* samples) {
  const Bytes bytes = datagram.bytes;
  if (datagram.version.sflow) {
    TakeSFlow(datagram, gaps, samples);
  } else if (datagram.version.number == 5 && bytes.size() >= 24) {
    TakeDomain(kNetFlow5, Be16(bytes.data() + 20), datagram,
               {Be32(bytes.data() + 16), Be16(bytes.data() + 2), datagram.time}, gaps);
  } else if (datagram.version.number == 9 && bytes.size() >= 20) {
    TakeDomain(kNetFlow9, Be32(bytes.data() + 16), datagram,
               {Be32(bytes.data() + 12), 1, datagram.time}, gaps);
  } else if (datagram.version.number == 10 && bytes.size() >= 16) {
    TakeDomain(kIpfix, Be32(bytes.data() + 12), datagram,
               {Be32(bytes.data() + 8), datagram.data_records, datagram.time}, gaps);
  }
}

// Engines and domains of an exporter number apart.
void SequenceTracker::TakeDomain(Kind kind, std::uint32_t domain, const NumberedDatagram& datagram,
                                 const Numbered& numbered, SequenceGaps* gaps) {
  tables_[kind].Of(absl::HashOf(datagram.exporter, domain)).Take(numbered, gaps);
}

// Version 5; earlier versions number datagrams alike, but their samples do not tell their lengths.
void SequenceTracker::TakeSFlow(const NumberedDatagram& datagram, SequenceGaps* gaps,
                                SequenceGaps* samples) {
  const Bytes bytes = datagram.bytes;
  if (bytes.size() < 8) return;
  const std::uint32_t version = Be32(bytes.data());
  const std::size_t agent = Be32(bytes.data() + 4) == 2 ? 16 : 4;
  const std::size_t number_at = 8 + agent + (version == 5 ? 4 : 0);  // behind the sub-agent
  if (bytes.size() < number_at + 12) return;
  const std::string_view sender(reinterpret_cast<const char*>(bytes.data()), number_at);
  const std::uint64_t stream = absl::HashOf(datagram.exporter, sender);
  tables_[kSFlow].Of(stream).Take({Be32(bytes.data() + number_at), 1, datagram.time}, gaps);
  if (version == 5) TakeSamples(stream, datagram.time, bytes.subspan(number_at + 12), samples);
}

void SequenceTracker::TakeSamples(std::uint64_t agent, Timestamp time, Bytes bytes,
                                  SequenceGaps* gaps) {
  while (bytes.size() >= 20) {
    const std::uint32_t type = Be32(bytes.data());  // 1 to 4: flow, counter, and both expanded
    const std::size_t length = Be32(bytes.data() + 4);
    if (length > bytes.size() - 8) return;
    if (type >= 1 && type <= 4 && length >= 12) {
      const std::uint32_t index = type >= 3 ? Be32(bytes.data() + 16) : 0;
      const std::uint64_t stream = absl::HashOf(agent, type, Be32(bytes.data() + 12), index);
      tables_[kSamples].Of(stream).Take({Be32(bytes.data() + 8), 1, time}, gaps);
    }
    bytes = bytes.subspan(8 + length);
  }
}

std::uint64_t SequenceTracker::Evicted() const {
  std::uint64_t evicted = 0;
  for (const StreamTable& table : tables_) evicted += table.evicted();
  return evicted;
}

std::string_view UnitOf(const ExportVersion& version) {
  if (version.sflow || version.number == 9) return "datagrams";
  if (version.number == 5) return "flows";
  return version.number == 10 ? "records" : "";
}

}  // namespace flow::host
