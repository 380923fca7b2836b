// What all components do the same way, and the layout of identifiers.

#include "plugin/component.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST(PluginIdentity, NeedsAllFiveOutputs) {
  for (int missing = 0; missing < 6; ++missing) {
    SCOPED_TRACE("null output " + std::to_string(missing) + ", 5 is none");
    char* texts[3] = {};
    unsigned int numbers[2] = {77, 77};
    const auto text = [&](int i) { return i == missing ? nullptr : &texts[i]; };
    const auto number = [&](int i) { return i + 3 == missing ? nullptr : &numbers[i]; };
    const Status status = AnswerPluginID({"a name", "a description"}, text(0), text(1), text(2),
                                         number(0), number(1));
    if (missing < 5) {
      EXPECT_EQ(status, kStatusNullOutput);
      EXPECT_THAT(texts, ElementsAre(nullptr, nullptr, nullptr));
      EXPECT_THAT(numbers, ElementsAre(77, 77));
    } else {
      EXPECT_EQ(status, kStatusOk);
      EXPECT_STREQ(texts[0], "a name");
      EXPECT_STREQ(texts[1], "a description");
      EXPECT_STREQ(texts[2], "Harrow Networks Ombrel Standard Plugin");
      EXPECT_THAT(numbers, ElementsAre(1, 0));
    }
    for (char* const owned : texts) delete[] owned;
  }
}

TEST(ClaimDatagram, Takes24BytesAndMore) {
  RecordingHost host;
  for (const std::size_t size : {0u, 23u, 24u, 1464u}) {
    SCOPED_TRACE(std::to_string(size) + " bytes");
    const Packet packet(host.Trace(), UdpHeaders({}, size), Bytes(size));
    DISPOSITION_CODE_T disposition = 77;
    Status buffer_status = 77;
    const Status status =
        ClaimDatagram(packet.Payload(), &disposition, packet.Context(), &buffer_status);
    EXPECT_EQ(status, size < 24 ? kStatusTooShort : kStatusOk);
    EXPECT_EQ(disposition, size < 24 ? 77u : kDispositionClaimed);
    EXPECT_EQ(buffer_status, kStatusOk);
    const std::string taken = "SetParsedLength " + std::to_string(size) + "\n";
    EXPECT_EQ(host.TakeText(), size < 24 ? "" : taken);
  }
}

TEST(Guid, LiesInMemoryAsTheHostComparesIt) {
  constexpr GUID guid = MakeGuid("01234567-89AB-CDEF-0F1E-2D3C4B5A6978");
  unsigned char bytes[16];
  std::memcpy(bytes, &guid, sizeof bytes);
  const unsigned char expected[16] = {0x67, 0x45, 0x23, 0x01, 0xAB, 0x89, 0xEF, 0xCD,
                                      0x0F, 0x1E, 0x2D, 0x3C, 0x4B, 0x5A, 0x69, 0x78};
  EXPECT_THAT(bytes, ElementsAreArray(expected));
}

}  // namespace
}  // namespace flow::test
