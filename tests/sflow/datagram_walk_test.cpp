// SPDX-License-Identifier: Apache-2.0
// The walk over a datagram: headers, kinds of samples, counts, lengths and what ends it early.

#include <gtest/gtest.h>

#include "sflow/sflow_decoder.h"
#include "tests/sflow/decoded.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

const SFlowElement kPacket = PacketData4(3);
const SFlowFlow kFlow = {.elements = {kPacket}};

std::vector<std::uint32_t> Types(const Decoded& decoded) {
  std::vector<std::uint32_t> types;
  for (const DecodedSample& sample : decoded.samples) types.push_back(sample.type);
  return types;
}

using TypeList = std::vector<std::uint32_t>;

TEST(DatagramWalk, FixedPartsOfSamples) {
  const auto fixed = [](const SFlowPacket& packet) {
    const Decoded decoded = Decode(packet.Build());
    return decoded.samples.empty() ? "no sample" : decoded.samples.back().fixed;
  };
  const SFlowFlow flow = {.elements = {},
                          .sequence = 9,
                          .source_class = 2,
                          .source_index = 0x00FEDCBA,
                          .rate = 400,
                          .pool = 4000,
                          .drops = 5,
                          .input_format = 1,
                          .input = 0x3FFFFFFE,
                          .output_format = 2,
                          .output = 8};
  const std::string head =
      "sourceIdType=2 sourceIdIndex=16702650 sampleSequenceNo=9 meanSkipCount=400 samplePool=4000"
      " dropEvents=5 ";
  EXPECT_EQ(fixed(SFlowPacket().Flow(flow)),
            head + "inputPortFormat=1 inputPort=1073741822 outputPortFormat=2 outputPort=8");
  SFlowFlow expanded = flow;
  expanded.expanded = true;
  expanded.source_class = 0x01000002;
  expanded.input = 0xFFFFFFFE;
  EXPECT_EQ(fixed(SFlowPacket().Flow(expanded)),
            "sourceIdType=16777218" + head.substr(14) +
                "inputPortFormat=1 inputPort=4294967294 outputPortFormat=2 outputPort=8");
  // Versions 2 and 4 have ports of a whole word, and no format.
  SFlowFlow old = {.elements = {PacketData4(2)}, .input = 0x80000003};
  EXPECT_EQ(fixed(SFlowPacket(4).Flow(old)),
            "sourceIdIndex=3 sampleSequenceNo=1 meanSkipCount=100 samplePool=5000"
            " inputPort=2147483651 outputPort=7 flowSampleType=2 sampledPacketSize=1000"
            " headerLen=32");
  EXPECT_EQ(
      fixed(SFlowPacket(2).Counters({.elements = {{1, CountedWords(7)}}, .block_version = 7})),
      "sourceIdIndex=3 sampleSequenceNo=1 statsSamplingInterval=30 counterBlockVersion=7");
  EXPECT_EQ(fixed(SFlowPacket().Counters({.elements = {}, .expanded = true})),
            "sourceIdIndex=3 sampleSequenceNo=1");
}

TEST(DatagramWalk, SizesOfASampledHeader) {
  const Frame frame = Frame().Hex("00010203040506");
  EXPECT_TRUE(
      Decode(SFlowPacket().Flow({.elements = {SampledHeader(frame)}}).Build())
          .samples.at(0)
          .fixed.ends_with("headerProtocol=1 sampledPacketSize=1000 headerLen=7 strippedBytes=4"));
  EXPECT_TRUE(
      Decode(SFlowPacket(4)
                 .Flow({.elements = {SampledHeader(frame, {.stripped = std::nullopt})}})
                 .Build())
          .samples.at(0)
          .fixed.ends_with("flowSampleType=1 headerProtocol=1 sampledPacketSize=1000 headerLen=7"));
}

// Every sample is delivered with its type word, those that are passed over too, and its fields are
// still those of the flow before.
TEST(DatagramWalk, KindsOfSamplesOfVersion5) {
  const Decoded decoded = Decode(SFlowPacket()
                                     .Flow(kFlow)
                                     .Counters({.elements = {{5, CountedWords(7, 9)}}})
                                     .Flow({.elements = {}, .expanded = true})
                                     .Counters({.elements = {}, .expanded = true})
                                     .Sample(5, Words({0}))
                                     .Sample(0x1001, Words({5, 1, 2}))
                                     .Sample(0, Words({4, 1}))
                                     .Build());
  EXPECT_EQ(Types(decoded), (TypeList{1, 2, 3, 4, 5, 0x1001, 0}));
  EXPECT_EQ(decoded.exit, SFExit::kNone);
  const std::string packet =
      "srcIP=10.0.0.1 dstIP=10.0.0.2 IPProtocol=6 IPTOS=32 srcPort=51000 dstPort=80 TCPFlags=18";
  EXPECT_EQ(decoded.samples[0].fields, packet);
  EXPECT_EQ(decoded.samples[1].fields, "in_vlan=9 " + packet);
  EXPECT_EQ(decoded.LastFields(), "in_vlan=9 " + packet);
}

TEST(DatagramWalk, AgentAddresses) {
  for (const Wire& agent : {SFlowAddress("10.9.8.7"), SFlowAddress6("2001:db8::7"),
                            Join({Words({0}), Wire().Zeros(16)})}) {
    EXPECT_EQ(Types(Decode(SFlowPacket().Agent(agent).Flow(kFlow).Build())), (TypeList{1}));
  }
}

TEST(DatagramWalk, UnsupportedContent) {
  const std::pair<const char*, Bytes> rows[] = {
      {"version 3", SFlowPacket(3).Flow(kFlow).Build()},
      {"version 0", SFlowPacket(0).Build()},
      {"version 4 sample type 3", SFlowPacket(4).Sample(3, Words({0})).Build()},
      {"version 2 sample type 0", SFlowPacket(2).Sample(0, Words({0})).Build()},
      {"packet data type 0", SFlowPacket(4).Flow({.elements = {PacketData4(0)}}).Build()},
      {"packet data type 4", SFlowPacket(4).Flow({.elements = {PacketData4(4)}}).Build()},
      {"extended type 0",
       SFlowPacket(4).Flow({.elements = {PacketData4(2), {0, Words({1})}}}).Build()},
      {"extended type 6",
       SFlowPacket(2).Flow({.elements = {PacketData4(2), {6, Words({1})}}}).Build()},
  };
  for (const auto& [what, datagram] : rows) {
    const Decoded decoded = Decode(datagram);
    EXPECT_EQ(decoded.samples.size(), 0U) << what;
    EXPECT_EQ(decoded.decode_ok, 0U) << what;
    EXPECT_EQ(decoded.exit, SFExit::kUnsupported) << what;
    EXPECT_EQ(decoded.diagnostics, "") << what;
  }
}

struct LengthRow {
  const char* what;
  Bytes datagram;
  std::size_t samples;
  std::string diagnostics;
};

TEST(DatagramWalk, CountsAndLengthsThatLie) {
  const LengthRow rows[] = {
      {"no samples", SFlowPacket().Flow(kFlow).WithCount(0).Build(), 0, ""},
      {"fewer samples announced", SFlowPacket().Flow(kFlow).Flow(kFlow).WithCount(1).Build(), 1,
       ""},
      {"more samples announced", SFlowPacket().Flow(kFlow).WithCount(2).Build(), 1,
       "unexpected end of datagram after sample 1 of 2\n"},
      {"samples without number", SFlowPacket().WithCount(0xFFFFFFFF).Build(), 0,
       "unexpected end of datagram after sample 0 of -1\n"},
      {"sample too long",
       SFlowPacket().Flow({.elements = {kPacket}, .length = 76}).Flow(kFlow).Build(), 0,
       "flow_sample length error (expected 76, found 72)\n"},
      {"sample without length", SFlowPacket().Flow({.elements = {kPacket}, .length = 0}).Build(), 0,
       "flow_sample length error (expected 0, found 72)\n"},
      {"sample of a length that is no number of words",
       SFlowPacket().Flow({.elements = {kPacket}, .length = 69}).Flow(kFlow).Build(), 2, ""},
      {"length that would wrap when padded",
       SFlowPacket().Flow({.elements = {kPacket}, .length = 0xFFFFFFFF}).Build(), 0,
       "flow_sample length error (expected -1, found 72)\n"},
      {"more elements announced", SFlowPacket().Flow({.elements = {kPacket}, .count = 2}).Build(),
       0, ""},
      {"fewer elements announced",
       SFlowPacket().Flow({.elements = {kPacket, kPacket}, .count = 1}).Build(), 0,
       "flow_sample length error (expected 112, found 72)\n"},
      {"counters sample too short",
       SFlowPacket().Counters({.elements = {}, .length = 8}).Flow(kFlow).Build(), 0,
       "counters_sample length error (expected 8, found 12)\n"},
      {"counter blocks without number",
       SFlowPacket().Counters({.elements = {}, .count = 0xFFFFFFFF}).Build(), 0, ""},
      {"skipped sample past the end", SFlowPacket().Sample(9, Words({4})).Build(), 0, ""},
      {"skipped sample of impossible length", SFlowPacket().Sample(9, Words({0xFFFFFFFD})).Build(),
       0, ""},
      {"bytes behind the last sample",
       Join({Wire().Raw(SFlowPacket().Flow(kFlow).Build()), Words({1, 2})}).Get(), 1, ""},
  };
  for (const LengthRow& row : rows) {
    const Decoded decoded = Decode(row.datagram);
    EXPECT_EQ(decoded.samples.size(), row.samples) << row.what;
    EXPECT_EQ(decoded.diagnostics, row.diagnostics) << row.what;
    EXPECT_EQ(decoded.decode_ok, 1U) << row.what;
  }
}

// A tail of one to three bytes is not the end, but no type word either.
TEST(DatagramWalk, TailShorterThanAWord) {
  const Bytes datagram = SFlowPacket().Flow(kFlow).WithCount(2).Build();
  for (std::size_t tail = 1; tail <= 3; ++tail) {
    Bytes longer = datagram;
    longer.resize(datagram.size() + tail);
    const Decoded decoded = Decode(longer);
    EXPECT_EQ(decoded.samples.size(), 1U);
    EXPECT_EQ(decoded.diagnostics, "");
    EXPECT_EQ(decoded.exit, SFExit::kEndOfDatagram);
  }
}

int CountCalls(void* context, _SFSample* sample) {
  ++*static_cast<int*>(context);
  return sample->datagramVersion == 5 && sample->decodeOK == 1 && sample->agentSubId == 0 &&
                 sample->sysUpTime == 1000 && sample->packetSequenceNo == 1
             ? 0
             : 1;
}

TEST(ParseSFlowCallback, CallsBackWhateverTheCallbackAnswers) {
  int calls = 0;
  const Bytes datagram = SFlowPacket().Flow(kFlow).Flow(kFlow).Flow(kFlow).Build();
  parseSFlowCallback(&calls, CountCalls, datagram.data(),
                     static_cast<std::uint32_t>(datagram.size()));
  EXPECT_EQ(calls, 3);
  parseSFlowCallback(&calls, CountCalls, nullptr, 0);
  EXPECT_EQ(calls, 3);
}

}  // namespace
}  // namespace flow::test
