// SPDX-License-Identifier: Apache-2.0
// What handlers do the same way.

#include "plugin/component.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

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

}  // namespace
}  // namespace flow::test
