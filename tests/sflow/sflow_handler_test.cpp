// The protocol handler: what it answers about itself and which datagrams it claims.

#include "sflow/sflow_handler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

TEST(SFlowHandler, ClaimsDatagramsByTheirSize) {
  RecordingHost host;
  const auto handler = host.Attach<CPISFlow>();
  EXPECT_EQ(host.Take("Log"),
            (std::vector<std::string>{"Log 8 Attached site to SFlow Protocol Plugin"}));
  for (const std::size_t size : {0U, 23U}) {
    const auto result = host.Parse(handler, Bytes(size, 0xFF));
    EXPECT_EQ(result.status, kStatusTooShort) << size;
    EXPECT_EQ(result.disposition, std::nullopt) << size;
    EXPECT_TRUE(host.Take("SetParsedLength").empty()) << size;
  }
  for (const std::size_t size : {24U, 1400U}) {
    const auto result = host.Parse(handler, Bytes(size, 0xFF));
    EXPECT_EQ(result.status, kStatusOk) << size;
    EXPECT_EQ(result.disposition, kDispositionClaimed) << size;
    EXPECT_EQ(host.TakeText(), "SetParsedLength " + std::to_string(size) + "\n");
  }
}

TEST(SFlowHandler, LeavesADatagramWithoutBytes) {
  RecordingHost host;
  const auto handler = host.Attach<CPISFlow>();
  host.Fail("GetBuffer");
  EXPECT_EQ(host.Parse(handler, Bytes(24)).status, kStatusTooShort);
}

TEST(SFlowHandler, NamesProtocolAndPort) {
  const ComponentOf<CPISFlow> handler;
  IID protocol{};
  char* name = nullptr;
  EXPECT_EQ(handler->GetProtID(&protocol, &name), kStatusOk);
  const std::unique_ptr<char[]> owned(name);
  EXPECT_STREQ(name, "SFlow");
  EXPECT_TRUE(protocol == MakeGuid("462919DD-EE84-497C-AC6F-05D1162BCC5B"));
  IID client{};
  EXPECT_EQ(handler->GetAPClientProtID(&client), kStatusOk);
  EXPECT_TRUE(client == protocol);

  unsigned short count = 0;
  ACCPT_T* ports = nullptr;
  EXPECT_EQ(handler->GetPrefAPHosts(&count, &ports), kStatusOk);
  ASSERT_EQ(count, 1);
  EXPECT_EQ(ports[0].port, 6343);
  EXPECT_TRUE(*ports[0].parent_protocol == UPID_UDP);
  bool result = false;
  EXPECT_EQ(handler->SetupFreeAP(nullptr, &result), kStatusNotSupported);
}

}  // namespace
}  // namespace flow::test
