// SPDX-License-Identifier: Apache-2.0
#include "host/intake/sequence.h"

#include <absl/hash/hash.h>

#include <algorithm>
#include <utility>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kV5Header = 24;
constexpr std::size_t kMostV5Records = (65'535 - 28 - kV5Header) / 48;  // in a datagram
constexpr std::size_t kV9Header = 20;
constexpr std::size_t kIpfixHeader = 16;

// Where an sFlow datagram has its number, behind the agent and the sub-agent; at its end when that
// is cut off. Two words more, and the samples begin.
std::size_t SFlowNumberAt(Bytes datagram) {
  if (datagram.size() < 8) return datagram.size();
  const std::size_t number_at = 8 + SFlowAgentSize(datagram) + (Be32(datagram.data()) == 5 ? 4 : 0);
  return datagram.size() < number_at + 12 ? datagram.size() : number_at;
}

// Calls visit for each sample of version 5 that has a number, with its type: 1 to 4 for flow,
// counter, and both expanded.
template <class Visit>
void ForEachSample(Bytes samples, Visit&& visit) {
  while (samples.size() >= 20) {
    const std::uint32_t type = Be32(samples.data());
    const std::size_t length = Be32(samples.data() + 4);
    if (length > samples.size() - 8) return;
    if (type >= 1 && type <= 4 && length >= 12) visit(type, samples);
    samples = samples.subspan(8 + length);
  }
}

// A name that is the same in every process (FNV-1a), unlike a hash.
constexpr std::uint64_t kNoName = 0xCBF2'9CE4'8422'2325;
std::uint64_t NameOf(std::uint64_t name, std::string_view text) {
  for (const char c : text) name = (name ^ static_cast<std::uint8_t>(c)) * 0x100'0000'01B3;
  return name;
}

void Append(Bytes bytes, std::vector<std::uint8_t>* out) {
  out->insert(out->end(), bytes.begin(), bytes.end());
}

}  // namespace

void SequenceTracker::Take(const NumberedDatagram& datagram, SequenceGaps* gaps,
                           SequenceGaps* samples) {
  const Bytes bytes = datagram.bytes;
  if (datagram.version.sflow) {
    TakeSFlow(datagram, gaps, samples);
  } else if (datagram.version.number == 5 && bytes.size() >= kV5Header &&
             Be16(bytes.data() + 2) <= kMostV5Records) {
    TakeDomain(kNetFlow5, Be16(bytes.data() + 20), datagram,
               {Be32(bytes.data() + 16), Be16(bytes.data() + 2), datagram.time}, gaps);
  } else if (datagram.version.number == 9 && bytes.size() >= kV9Header) {
    TakeDomain(kNetFlow9, Be32(bytes.data() + 16), datagram,
               {Be32(bytes.data() + 12), 1, datagram.time}, gaps);
  } else if (datagram.version.number == 10 && bytes.size() >= kIpfixHeader) {
    TakeDomain(kIpfix, Be32(bytes.data() + 12), datagram,
               {Be32(bytes.data() + 8), datagram.data_records, datagram.time}, gaps);
  }
}

// Engines and domains of an exporter number apart.
void SequenceTracker::TakeDomain(Kind kind, std::uint32_t domain, const NumberedDatagram& datagram,
                                 const Numbered& numbered, SequenceGaps* gaps) {
  TakeStream(&tables_[kind].Of(absl::HashOf(datagram.exporter, domain)), datagram, numbered, gaps,
             [domain](StreamNumbers* named) { named->stream = domain; });
}

StreamNumbers* SequenceTracker::NumbersOf(SequenceStream* stream) {
  const bool is_noted = stream->mark().turn == turn_;
  if (is_noted && noted_[stream->mark().index].run == stream->moves()) {
    return &noted_[stream->mark().index];
  }
  return nullptr;
}

// What a number brought is what the stream went on by, less what it left out, and what came late. A
// run that has proved to be one brings all of it; one that the stream comes back to this number.
template <class Name>
void SequenceTracker::TakeStream(SequenceStream* stream, const NumberedDatagram& datagram,
                                 const Numbered& numbered, SequenceGaps* gaps, Name&& name) {
  if (!notes_numbers_) return stream->Take(numbered, gaps);
  const bool was_started = stream->is_started();
  const std::uint32_t moves = stream->moves();
  const std::uint32_t next = stream->next();
  const SequenceGaps before = *gaps;
  stream->Take(numbered, gaps);
  const bool is_anew = !was_started || stream->moves() != moves;
  const bool is_back =
      was_started && is_anew && gaps->restarts + gaps->jumps == before.restarts + before.jumps;
  const auto missing = static_cast<std::uint32_t>(gaps->missing - before.missing);
  std::uint32_t advance = stream->next() - (is_anew ? stream->start() : next);
  if (is_back) advance = std::min(advance, missing + numbered.units.value_or(0));
  const std::uint32_t in_time = advance - std::min(advance, missing);
  const std::uint64_t came = in_time + (gaps->came - before.came);
  if (came == 0 && !is_anew) return;
  StreamNumbers* numbers = NumbersOf(stream);
  if (numbers == nullptr) {
    if (noted_.size() >= kMostNoted) return;
    stream->mark() = {turn_, static_cast<std::uint32_t>(noted_.size())};
    numbers = &noted_.emplace_back();
    numbers->exporter = datagram.exporter;
    numbers->version = datagram.version;
    numbers->run = stream->moves();
    numbers->first = stream->next() - (is_anew ? advance : in_time);
    name(numbers);
  }
  numbers->next = stream->next();
  numbers->came += came;
}

std::vector<StreamNumbers> SequenceTracker::TakeNumbers() {
  ++turn_;
  std::vector<StreamNumbers> taken = std::exchange(noted_, {});
  noted_.reserve(taken.size());  // as many as before, most of the time
  return taken;
}

// Earlier versions number datagrams alike, but their samples do not tell their lengths.
void SequenceTracker::TakeSFlow(const NumberedDatagram& datagram, SequenceGaps* gaps,
                                SequenceGaps* samples) {
  const Bytes bytes = datagram.bytes;
  const std::size_t number_at = SFlowNumberAt(bytes);
  if (number_at == bytes.size()) return;
  const std::string_view sender(reinterpret_cast<const char*>(bytes.data()), number_at);
  const std::uint64_t agent = absl::HashOf(datagram.exporter, sender);
  TakeStream(&tables_[kSFlow].Of(agent), datagram,
             {Be32(bytes.data() + number_at), 1, datagram.time}, gaps,
             [sender](StreamNumbers* named) { named->stream = NameOf(kNoName, sender); });
  if (datagram.version.number != 5) return;
  ForEachSample(bytes.subspan(number_at + 12), [&](std::uint32_t type, Bytes sample) {
    const std::uint32_t index = type >= 3 ? Be32(sample.data() + 16) : 0;
    const std::uint64_t stream = absl::HashOf(agent, type, Be32(sample.data() + 12), index);
    TakeStream(&tables_[kSamples].Of(stream), datagram, {Be32(sample.data() + 8), 1, datagram.time},
               samples, [&](StreamNumbers* named) {
                 const std::uint8_t* const source = sample.data() + 12;
                 const std::string_view place(reinterpret_cast<const char*>(source),
                                              type >= 3 ? 8 : 4);
                 named->of_samples = true;
                 named->stream = NameOf(NameOf(kNoName + type, sender), place);
               });
  });
}

std::uint64_t SequenceTracker::Evicted() const {
  std::uint64_t evicted = 0;
  for (const StreamTable& table : tables_) evicted += table.evicted();
  return evicted;
}

void AppendNumbers(const ExportVersion& version, Bytes datagram, std::vector<std::uint8_t>* out) {
  const std::size_t number_at = SFlowNumberAt(datagram);
  if (!version.sflow || number_at == datagram.size()) {
    const std::size_t header = version.sflow ? 4 : kV5Header;
    return Append(datagram.first(std::min(header, datagram.size())), out);
  }
  Append(datagram.first(number_at + 12), out);
  if (version.number != 5) return;
  ForEachSample(datagram.subspan(number_at + 12), [&](std::uint32_t type, Bytes sample) {
    constexpr std::uint8_t kLength[] = {0, 0, 0, 12};
    Append({{0, 0, 0, static_cast<std::uint8_t>(type)}}, out);
    Append(kLength, out);
    Append(sample.subspan(8, 12), out);
  });
}

std::string_view UnitOf(const ExportVersion& version) {
  if (version.sflow || version.number == 9) return "datagrams";
  if (version.number == 5) return "flows";
  return version.number == 10 ? "records" : "";
}

std::string_view StreamNumbers::Unit() const { return of_samples ? "samples" : UnitOf(version); }

}  // namespace flow::host
