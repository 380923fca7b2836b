// SPDX-License-Identifier: Apache-2.0
// Flow samples of all versions: their fixed part and the walk over their elements.

#include <algorithm>
#include <iterator>

#include "sflow/sflow_steps.h"

namespace {

using Step = bool (*)(_SFSample*);

struct FlowElement {
  std::uint32_t type;  // enterprise 0
  Step read;
};

// Elements of version 5 samples, the commonest first: the search ends at the first match.
constexpr FlowElement kFlowElements[] = {
    {1, readFlowSample_header},       {1001, readExtendedSwitch},
    {1002, readExtendedRouter},       {1003, readExtendedGateway},
    {2, readFlowSample_ethernet},     {3, readFlowSample_IPv4},
    {4, readFlowSample_IPv6},         {1004, readExtendedUser},
    {1005, readExtendedUrl},          {1006, readExtendedMpls},
    {1007, readExtendedNat},          {1008, readExtendedMplsTunnel},
    {1009, readExtendedMplsVC},       {1010, readExtendedMplsFTN},
    {1011, readExtendedMplsLdpFec},   {1012, readExtendedVlanTunnel},
    {1013, readExtendedWifiPayload},  {1014, readExtendedWifiReceive},
    {1015, readExtendedWifiTransmit}, {2100, readExtendedSocket4},
    {2101, readExtendedSocket6},      {2200, readFlowSample_memcache},
    {2201, readFlowSample_http},
};

// Extended data of versions 2 and 4; its types count from 1.
constexpr Step kExtendedElements[] = {readExtendedSwitch, readExtendedRouter, readExtendedGateway,
                                      readExtendedUser, readExtendedUrl};

bool ReadFlowElement(_SFSample* sample) {
  const std::uint8_t* head = nullptr;
  if (!TakeWords(sample, 2, &head)) return false;
  const std::uint32_t type = LoadBe32(head);
  const std::uint32_t length = LoadBe32(head + 4);
  const std::uint8_t* const start = sample->cursor.Position();
  const auto* const element =
      std::find_if(std::begin(kFlowElements), std::end(kFlowElements),
                   [type](const FlowElement& candidate) { return candidate.type == type; });
  const bool read =
      element == std::end(kFlowElements) ? skipBytes(sample, length) : element->read(sample);
  return read && lengthCheck(sample, "flow_sample_element", start, length);
}

bool ReadExtendedElement(_SFSample* sample) {
  std::uint32_t type = 0;
  if (!GetWord(sample, &type)) return false;
  if (type == 0 || type > std::size(kExtendedElements)) return GiveUpUnsupported(sample);
  return kExtendedElements[type - 1](sample);
}

bool ReadPacketDataV2V4(_SFSample* sample) {
  switch (sample->flowSampleType) {
    case 1:
      return readFlowSample_header(sample);
    case 2:
      sample->hasIPv4Struct = 1;
      return readFlowSample_IPv4(sample);
    case 3:
      sample->hasIPv6Struct = 1;
      return readFlowSample_IPv6(sample);
    default:
      return GiveUpUnsupported(sample);
  }
}

}  // namespace

bool readFlowSample(_SFSample* sample, bool expanded) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, expanded ? 12 : 9, &fixed)) return false;
  SFWords words(fixed);
  const std::uint32_t length = words.Next();
  const std::uint8_t* const start = words.Position();
  sample->sampleSequenceNo = words.Next();
  ReadSource(sample, &words, expanded);
  sample->meanSkipCount = words.Next();
  sample->samplePool = words.Next();
  sample->dropEvents = words.Next();
  if (expanded) {
    sample->inputPortFormat = words.Next();
    sample->inputPort = words.Next();
    sample->outputPortFormat = words.Next();
    sample->outputPort = words.Next();
  } else {
    const std::uint32_t input = words.Next();
    const std::uint32_t output = words.Next();
    sample->inputPortFormat = input >> 30;
    sample->inputPort = input & 0x3FFFFFFF;
    sample->outputPortFormat = output >> 30;
    sample->outputPort = output & 0x3FFFFFFF;
  }
  const std::uint32_t elements = words.Next();
  for (std::uint32_t i = 0; i < elements; ++i) {
    if (!ReadFlowElement(sample)) return false;
  }
  return lengthCheck(sample, "flow_sample", start, length);
}

bool readFlowSample_v2v4(_SFSample* sample) {
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, 8, &fixed)) return false;
  SFWords words(fixed);
  sample->sampleSequenceNo = words.Next();
  ReadSource(sample, &words, false);
  sample->meanSkipCount = words.Next();
  sample->samplePool = words.Next();
  sample->dropEvents = words.Next();
  sample->inputPort = words.Next();
  sample->outputPort = words.Next();
  sample->flowSampleType = words.Next();
  if (!ReadPacketDataV2V4(sample)) return false;
  sample->extendedTypes = 0;
  if (!GetWord(sample, &sample->num_extended)) return false;
  for (std::uint32_t i = 0; i < sample->num_extended; ++i) {
    if (!ReadExtendedElement(sample)) return false;
  }
  return true;
}
