// SPDX-License-Identifier: Apache-2.0
// Counters samples: read to get past them. Of their blocks only the generic interface counters and
// the VLAN number are kept.

#include <algorithm>
#include <iterator>

#include "sflow/sflow_steps.h"

namespace {

void ReadGenericCounters(_SFSample* sample, SFWords* words) {
  sample->ifIndex = words->Next();
  sample->networkType = words->Next();
  sample->ifSpeed = words->getData64();
  sample->ifDirection = words->Next();
  sample->ifStatus = words->Next();
  sample->ifInOctets = words->getData64();
  sample->ifInUcastPkts = words->Next();
  sample->ifInMulticastPkts = words->Next();
  sample->ifInBroadcastPkts = words->Next();
  sample->ifInDiscards = words->Next();
  sample->ifInErrors = words->Next();
  sample->ifInUnknownProtos = words->Next();
  sample->ifOutOctets = words->getData64();
  sample->ifOutUcastPkts = words->Next();
  sample->ifOutMulticastPkts = words->Next();
  sample->ifOutBroadcastPkts = words->Next();
  sample->ifOutDiscards = words->Next();
  sample->ifOutErrors = words->Next();
  sample->ifPromiscuousMode = words->Next();
}

bool readCounters_generic(_SFSample* sample) {
  const std::uint8_t* block = nullptr;
  if (!TakeWords(sample, 22, &block)) return false;
  SFWords words(block);
  ReadGenericCounters(sample, &words);
  return true;
}

bool readCounters_ethernet(_SFSample* sample) { return SkipWords(sample, 13); }

bool readCounters_tokenring(_SFSample* sample) { return SkipWords(sample, 18); }

bool readCounters_vg(_SFSample* sample) { return SkipWords(sample, 20); }

bool readCounters_vlan(_SFSample* sample) {
  const std::uint8_t* block = nullptr;
  if (!TakeWords(sample, 7, &block)) return false;
  sample->in_vlan = LoadBe32(block);
  return true;
}

bool readCounters_80211(_SFSample* sample) { return SkipWords(sample, 20); }

bool readCounters_processor(_SFSample* sample) { return SkipWords(sample, 7); }

using Step = bool (*)(_SFSample*);

struct CounterBlock {
  std::uint32_t type;  // enterprise 0
  Step read;
};

// Blocks of a fixed size. Those of radios (1002), hosts (2000 to 2006), virtual nodes (2100 to
// 2104), memcache (2200) and HTTP servers (2201) have grown over the years: they are passed over by
// the length that the agent gives them, as unknown blocks are.
constexpr CounterBlock kCounterBlocks[] = {
    {1, readCounters_generic},      {2, readCounters_ethernet}, {3, readCounters_tokenring},
    {4, readCounters_vg},           {5, readCounters_vlan},     {6, readCounters_80211},
    {1001, readCounters_processor},
};

bool ReadCounterBlock(_SFSample* sample) {
  const std::uint8_t* head = nullptr;
  if (!TakeWords(sample, 2, &head)) return false;
  const std::uint32_t type = LoadBe32(head);
  const std::uint32_t length = LoadBe32(head + 4);
  const std::uint8_t* const start = sample->cursor.Position();
  const auto* const block =
      std::find_if(std::begin(kCounterBlocks), std::end(kCounterBlocks),
                   [type](const CounterBlock& candidate) { return candidate.type == type; });
  const bool read =
      block == std::end(kCounterBlocks) ? skipBytes(sample, length) : block->read(sample);
  return read && lengthCheck(sample, "counters_sample_element", start, length);
}

bool NoFurtherCounters(_SFSample* /*sample*/) { return true; }

// What follows the generic interface counters in block versions 1 to 6.
constexpr Step kCounterBlockVersions[] = {NoFurtherCounters,      readCounters_ethernet,
                                          readCounters_tokenring, NoFurtherCounters,
                                          readCounters_vg,        NoFurtherCounters};

}  // namespace

bool readCountersSample(_SFSample* sample, bool expanded) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, expanded ? 5 : 4, &fixed)) return false;
  SFWords words(fixed);
  const std::uint32_t length = words.Next();
  const std::uint8_t* const start = words.Position();
  sample->sampleSequenceNo = words.Next();
  ReadSource(sample, &words, expanded);
  const std::uint32_t blocks = words.Next();
  for (std::uint32_t i = 0; i < blocks; ++i) {
    if (!ReadCounterBlock(sample)) return false;
  }
  return lengthCheck(sample, "counters_sample", start, length);
}

bool readCountersSample_v2v4(_SFSample* sample) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, 4, &fixed)) return false;
  SFWords words(fixed);
  sample->sampleSequenceNo = words.Next();
  ReadSource(sample, &words, false);
  sample->statsSamplingInterval = words.Next();
  sample->counterBlockVersion = words.Next();
  constexpr std::uint32_t kVlanVersion = 7;
  const std::uint32_t version = sample->counterBlockVersion;
  if (version == kVlanVersion) return readCounters_vlan(sample);
  if (version == 0 || version > std::size(kCounterBlockVersions)) return GiveUpUnsupported(sample);
  return readCounters_generic(sample) && kCounterBlockVersions[version - 1](sample);
}
