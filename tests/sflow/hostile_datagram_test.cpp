// Damaged datagrams: every byte that is there may be wrong, and any number may be missing. Blocks
// on the heap have exactly a datagram's size, so the sanitizers see a read one byte too far.

#include <gtest/gtest.h>

#include <algorithm>

#include "sflow/sflow_meter.h"
#include "tests/sflow/decoded.h"
#include "tests/support/recording_host.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

TEST(HostileDatagram, SeedsAreWhole) {
  for (const NamedBytes& seed : SFlowDatagrams()) {
    const Decoded decoded = Decode(seed.bytes);
    EXPECT_EQ(decoded.exit, SFExit::kNone) << seed.name;
    EXPECT_EQ(decoded.diagnostics, "") << seed.name;
    EXPECT_FALSE(decoded.samples.empty()) << seed.name;
  }
}

// What a shortened datagram delivers is what the whole one delivers first.
TEST(HostileDatagram, CutAtEveryLength) {
  for (const NamedBytes& seed : SFlowDatagrams()) {
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
  for (const NamedBytes& seed : SFlowDatagrams()) {
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
      "<MeterVLAN>false</MeterVLAN>"  // its keys grow with numbers beyond 16 bits
      "<MergeMultipleSources>false</MergeMultipleSources>");
  const auto meter = host.Attach<CPISFlowMeter>();
  host.Recording(false);
  testing::internal::CaptureStderr();
  for (const NamedBytes& seed : SFlowDatagrams()) {
    Damage(seed.bytes, [&](const Bytes& damaged, std::size_t /*at*/) {
      EXPECT_EQ(host.Count(meter, damaged), kStatusOk);
    });
  }
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace flow::test
