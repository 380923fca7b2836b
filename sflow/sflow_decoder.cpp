// SPDX-License-Identifier: Apache-2.0
#include "sflow/sflow_decoder.h"

#include <algorithm>
#include "sflow/diagnostics.h"
#include "sflow/sflow_steps.h"

bool skipBytes(_SFSample* sample, std::uint32_t length) {
  const std::uint8_t* ignored = nullptr;
  return TakeBytes(sample, length, &ignored);
}

bool skipTLVRecord(_SFSample* sample) {
  std::uint32_t length = 0;
  return GetWord(sample, &length) && skipBytes(sample, length);
}

bool getAddress(_SFSample* sample, SFAddress* out) {
  std::uint32_t type = 0;
  const std::uint8_t* address = nullptr;
  if (!GetWord(sample, &type)) return false;
  if (type != kSFAddressIPv4) type = kSFAddressIPv6;
  if (!TakeWords(sample, type == kSFAddressIPv4 ? 1 : 4, &address)) return false;
  SFWords(address).NextAddress(type, out);
  return true;
}

bool getString(_SFSample* sample, char* buffer, std::size_t size, std::uint32_t* length) {
  const std::uint8_t* text = nullptr;
  if (!GetWord(sample, length) || !TakeBytes(sample, *length, &text)) return false;
  const std::size_t kept = std::min<std::size_t>(*length, size - 1);
  std::memcpy(buffer, text, kept);
  buffer[kept] = '\0';
  return true;
}

bool SkipString(_SFSample* sample) { return skipTLVRecord(sample); }

bool ReportLength(_SFSample* sample, const char* name, std::uint32_t length, std::uint64_t found) {
  SFDiagnostic()
      .Text(name)
      .Text(" length error (expected ")
      .Number(length)
      .Text(", found ")
      .Number(static_cast<std::uint32_t>(found))
      .Text(")\n")
      .Write();
  return GiveUp(sample, SFExit::kLengthError);
}

namespace {

bool ReadSampleV5(_SFSample* sample) {
  switch (sample->sampleType) {
    case kSFFlowSample:
      return readFlowSample(sample, false);
    case kSFCountersSample:
      return readCountersSample(sample, false);
    case kSFExpandedFlowSample:
      return readFlowSample(sample, true);
    case kSFExpandedCountersSample:
      return readCountersSample(sample, true);
    default:
      return skipTLVRecord(sample);
  }
}

bool ReadSampleV2V4(_SFSample* sample) {
  switch (sample->sampleType) {
    case kSFFlowSample:
      return readFlowSample_v2v4(sample);
    case kSFCountersSample:
      return readCountersSample_v2v4(sample);
    default:
      return GiveUpUnsupported(sample);  // without a length there is no way past it
  }
}

bool ReadDatagramHeader(_SFSample* sample, std::uint32_t* sample_count) {
  if (!GetWord(sample, &sample->datagramVersion)) return false;
  const std::uint32_t version = sample->datagramVersion;
  if (version != 2 && version != 4 && version != 5) return GiveUpUnsupported(sample);
  return getAddress(sample, &sample->agent) &&
         (version != 5 || GetWord(sample, &sample->agentSubId)) &&
         GetWord(sample, &sample->packetSequenceNo) && GetWord(sample, &sample->sysUpTime) &&
         GetWord(sample, sample_count);
}

}  // namespace

bool readSFlowDatagram(void* context, SFlowCallback callback, _SFSample* sample) {
  std::uint32_t sample_count = 0;
  if (!ReadDatagramHeader(sample, &sample_count)) return false;
  const bool has_lengths = sample->datagramVersion == 5;
  for (std::uint32_t i = 0; i < sample_count; ++i) {
    if (sample->cursor.Remaining() == 0) {
      SFDiagnostic()
          .Text("unexpected end of datagram after sample ")
          .Number(i)
          .Text(" of ")
          .Number(sample_count)
          .Text("\n")
          .Write();
      return GiveUp(sample, SFExit::kEndOfDatagram);
    }
    if (!GetWord(sample, &sample->sampleType)) return false;
    if (!(has_lengths ? ReadSampleV5(sample) : ReadSampleV2V4(sample))) return false;
    callback(context, sample);
  }
  return true;
}

void parseSFlowCallback(void* context, SFlowCallback callback, const std::uint8_t* datagram,
                        std::uint32_t length) {
  _SFSample sample{};
  sample.datagram = datagram;
  sample.datagramSize = length;
  sample.cursor = ByteCursor({datagram, length});
  sample.decodeOK = 1;
  readSFlowDatagram(context, callback, &sample);
}
