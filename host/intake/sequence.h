// SPDX-License-Identifier: Apache-2.0
// Sequence numbers of export datagrams: what an exporter sent that never came.
//
// NetFlow v5 numbers flows, v9 datagrams and IPFIX data records, per source or observation domain;
// sFlow numbers datagrams per agent and samples per data source. NetFlow v1 numbers nothing.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/base/endpoint.h"
#include "host/base/memory_budget.h"
#include "host/export/export_format.h"
#include "host/intake/stream_table.h"

namespace flow::host {

// A datagram whose numbers have come.
struct NumberedDatagram {
  Endpoint exporter;
  ExportVersion version;
  Timestamp time = 0;
  std::span<const std::uint8_t> bytes;
  std::optional<std::uint32_t> data_records;  // of IPFIX, unless a template is unknown
};

// The numbers of a stream that came over some time, of one of its runs.
struct StreamNumbers {
  Endpoint exporter;
  ExportVersion version;
  bool of_samples = false;  // or of what UnitOf says
  std::uint64_t stream =
      0;                    // its domain; of sFlow made from its agent, and of samples their source
  std::uint32_t run = 0;    // which, in the order of time
  std::uint32_t first = 0;  // what came first, and what is expected behind the last, modulo 2^32
  std::uint32_t next = 0;
  std::uint64_t came = 0;  // units; less than lie between where some were lost

  [[nodiscard]] std::string_view Unit() const;
};

// All streams of a lane's exporters. Kinds of numbers have tables of their own, so that a flood of
// one leaves the others alone.
class SequenceTracker {
 public:
  static constexpr std::uint32_t kMostStreams = 1U << 16;  // of each kind
  static constexpr std::uint32_t kMostSampleStreams = 1U << 17;

  // samples takes the gaps of sFlow samples.
  void Take(const NumberedDatagram& datagram, SequenceGaps* gaps, SequenceGaps* samples);

  // NoteNumbers has it keep what TakeNumbers gives: what came since it was called last, of at most
  // kMostNoted runs.
  static constexpr std::size_t kMostNoted = std::size_t{1} << 16;
  void NoteNumbers() { notes_numbers_ = true; }
  std::vector<StreamNumbers> TakeNumbers();

  // Streams that were let go because there were too many.
  [[nodiscard]] std::uint64_t Evicted() const;

 private:
  enum Kind { kNetFlow5, kNetFlow9, kIpfix, kSFlow, kSamples, kKinds };

  void TakeDomain(Kind kind, std::uint32_t domain, const NumberedDatagram& datagram,
                  const Numbered& numbered, SequenceGaps* gaps);
  void TakeSFlow(const NumberedDatagram& datagram, SequenceGaps* gaps, SequenceGaps* samples);
  // name gives what StreamNumbers calls the stream.
  template <class Name>
  void TakeStream(SequenceStream* stream, const NumberedDatagram& datagram,
                  const Numbered& numbered, SequenceGaps* gaps, Name&& name);
  StreamNumbers* NumbersOf(SequenceStream* stream);

  static StreamTable TableOf(std::uint32_t most) {
    return StreamTable(std::min(most, most / kMostStreams * Shares().streams));
  }
  std::array<StreamTable, kKinds> tables_{TableOf(kMostStreams), TableOf(kMostStreams),
                                          TableOf(kMostStreams), TableOf(kMostStreams),
                                          TableOf(kMostSampleStreams)};
  bool notes_numbers_ = false;
  std::vector<StreamNumbers> noted_;
  std::uint32_t turn_ = 1;  // between two calls of TakeNumbers
};

// AppendNumbers writes what Take reads of a datagram, as a datagram without records, behind *out.
// How many records an IPFIX message has is not among it.
void AppendNumbers(const ExportVersion& version, std::span<const std::uint8_t> datagram,
                   std::vector<std::uint8_t>* out);

// UnitOf names what a version's numbers count: "flows", "datagrams", "records", or "".
std::string_view UnitOf(const ExportVersion& version);

}  // namespace flow::host
