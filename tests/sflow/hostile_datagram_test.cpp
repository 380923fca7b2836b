// SPDX-License-Identifier: Apache-2.0
// Damaged datagrams: every byte that is there may be wrong, and any number may be missing. Blocks
// on the heap have exactly a datagram's size, so the sanitizers see a read one byte too far.

#include <gtest/gtest.h>

#include <algorithm>

#include "sflow/sflow_meter.h"
#include "tests/sflow/decoded.h"
#include "tests/support/recording_host.h"
#include "tests/support/samples.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

// Seeds are the builders' datagrams and the first ones that an exporter sent into each capture.
std::vector<NamedBytes> Seeds(int most_recorded) {
  std::vector<NamedBytes> seeds = SFlowDatagrams();
  std::string capture;
  int taken = 0;
  for (const RecordedDatagram& recorded : RecordedDatagrams()) {
    if (!recorded.name.starts_with("sflow")) continue;
    const std::string from = recorded.name.substr(0, recorded.name.find(' '));
    taken = from == capture ? taken + 1 : 1;
    capture = from;
    if (taken <= most_recorded) seeds.push_back({recorded.name, recorded.bytes});
  }
  return seeds;
}
constexpr int kAll = 1'000'000;

TEST(HostileDatagram, SeedsAreWhole) {
  for (const NamedBytes& seed : Seeds(kAll)) {
    const Decoded decoded = Decode(seed.bytes);
    EXPECT_EQ(decoded.exit, SFExit::kNone) << seed.name;
    EXPECT_EQ(decoded.diagnostics, "") << seed.name;
    EXPECT_FALSE(decoded.samples.empty()) << seed.name;
  }
}

// What a shortened datagram delivers is what the whole one delivers first.
TEST(HostileDatagram, CutAtEveryLength) {
  for (const NamedBytes& seed : Seeds(1)) {
    const Decoded whole = Decode(seed.bytes);
    for (std::size_t size = 0; size < seed.bytes.size(); ++size) {
      const Decoded cut = Decode(std::span(seed.bytes).first(size));
      ASSERT_LT(cut.samples.size(), whole.samples.size()) << seed.name << " cut at " << size;
      ASSERT_TRUE(std::equal(cut.samples.begin(), cut.samples.end(), whole.samples.begin()))
          << seed.name << " cut at " << size;
      ASSERT_EQ(cut.exit, SFExit::kEndOfDatagram) << seed.name << " cut at " << size;
    }
  }
}

// Damage calls back with the seed and each of its one-byte changes.
template <class Check>
void Damage(const Bytes& seed, Check check) {
  Bytes damaged = seed;
  for (std::size_t at = 0; at < seed.size(); ++at) {
    for (const int change : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
      damaged[at] = static_cast<std::uint8_t>(seed[at] ^ change);
      check(damaged, at);
    }
    damaged[at] = seed[at];
  }
}

TEST(HostileDatagram, AnyByteChanged) {
  for (const NamedBytes& seed : Seeds(1)) {
    Damage(seed.bytes, [&](const Bytes& damaged, std::size_t at) {
      const Decoded decoded = Decode(damaged);
      // The shortest sample has a type and a length.
      ASSERT_LE(decoded.samples.size(), damaged.size() / 8) << seed.name << " at " << at;
      ASSERT_EQ(decoded.decode_ok == 0, decoded.exit == SFExit::kUnsupported)
          << seed.name << " at " << at;
    });
  }
}

// The recording host ends the program when a key has another form than its group's.
TEST(HostileDatagram, KeepsTheMetersKeysInForm) {
  RecordingHost host;
  host.Policy(
      "<MeterTCPConnections>true</MeterTCPConnections>"
      "<MeterAppConnections>true</MeterAppConnections>"
      "<MergeMultipleSources>false</MergeMultipleSources>");
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Recording(false);
  testing::internal::CaptureStderr();
  for (const NamedBytes& seed : Seeds(1)) {
    Damage(seed.bytes, [&](const Bytes& damaged, std::size_t /*at*/) {
      EXPECT_EQ(host.Count(meter, damaged), kStatusOk);
    });
  }
  for (const NamedBytes& seed : Seeds(2)) {
    for (std::size_t size = 0; size < seed.bytes.size(); ++size) {
      EXPECT_EQ(host.Count(meter, std::span(seed.bytes).first(size)), kStatusOk);
    }
  }
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace flow::test
