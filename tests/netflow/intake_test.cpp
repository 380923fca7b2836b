// SPDX-License-Identifier: Apache-2.0
// From the host's call to a decoder: what is accepted, whom it comes from, and what is done beside.

#include <algorithm>
#include <memory>

#include "tests/netflow/meter_test.h"
#include "tests/support/host_object.h"

namespace flow::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kShort[] = "Incorrect or short Netflow  Header \n";
constexpr char kVersion[] = "Expecting Netflow Version 5 9 10 packet\n";
constexpr char kTruncated1[] = "Netflow 1 packet appears to be truncated\n";
constexpr char kTruncated5[] = "Netflow 5 packet appears to be truncated\n";
constexpr char kSources[] = "<MeterNetflowSources>true</MeterNetflowSources>";
constexpr char kConflict[] =
    "<FilterHostsInclude>10.0.0.1</FilterHostsInclude>"
    "<FilterHostsExclude>10.0.0.1</FilterHostsExclude>";

Bytes Cut(Bytes datagram, std::size_t size) {
  datagram.resize(size);
  return datagram;
}

std::string Volume(std::size_t bytes) {
  return "volume " + std::to_string(bytes) + " of C0.00.02.01";
}

class Intake : public MeterTest {};

TEST_F(Intake, Results) {
  V5Packet thirty;
  for (int i = 0; i < 30; ++i) thirty.Record();
  // clang-format off
  const struct {
    const char* name;
    Bytes datagram;
    Status status;
    const char* error;  // null: the datagram is metered
    std::size_t flows;
  } cases[] = {
      {"Empty", {}, kStatusFailed, kShort, 0},
      {"V5_23Bytes", Cut(V5Packet().Build(), 23), kStatusFailed, kShort, 0},
      {"V1HeaderAlone", V1Packet().Build(), kStatusFailed, kShort, 0},
      {"V1NoRecords", Cut(V1Packet().Build(), 24), kStatusOk, nullptr, 0},
      {"V1Record", V1Packet().Record().Build(), kStatusOk, nullptr, 1},
      {"V1OneByteShort", Cut(V1Packet().Record().Build(), 63), 1, kTruncated1, 0},
      {"V1CountTooLarge", V1Packet().Record().WithCount(2).Build(), 1, kTruncated1, 0},
      {"V5NoRecords", V5Packet().Build(), kStatusOk, nullptr, 0},
      {"V5_30Records", thirty.Build(), kStatusOk, nullptr, 30},
      {"V5OneByteShort", Cut(thirty.Build(), 1463), 1, kTruncated5, 0},
      {"V5OneByteMore", Cut(V5Packet().Record().Build(), 73), kStatusOk, nullptr, 1},
      {"V5LargestCount", V5Packet().Record().WithCount(65535).Build(), 1, kTruncated5, 0},
      {"V7", V5Packet().Record().WithVersion(7).Build(), kStatusFailed, kVersion, 0},
      {"V0x0500", V5Packet().WithVersion(0x0500).Build(), kStatusFailed, kVersion, 0},
      {"V9HeaderAlone", V9Packet().Build(), kStatusFailed, kShort, 0},
      {"V9", V9(Set(256)).Build(), 1, nullptr, 0},
      {"Ipfix", IpfixMessage().Add(Set(256).Pad(4)).Build(), 1, nullptr, 0},
  };
  // clang-format on
  Start(kSources);
  constexpr char kRecord[] =
      "6 10.0.0.1:51000 > 10.0.0.2:80 if 3 > 7, 1000 bytes 10 packets, for 4000";
  const char* last_error = "";
  std::uint64_t counted = 0;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Send(row.datagram), row.status);
    Texts said(row.flows, kRecord);
    if (row.error == nullptr) said.push_back(Volume(row.datagram.size()));
    EXPECT_EQ(Said(), said);
    EXPECT_STREQ(meter_->LastErrorText(), row.error == nullptr ? last_error : row.error);
    last_error = meter_->LastErrorText();
    if (row.datagram.size() >= 24) ++counted;
    EXPECT_EQ(meter_->DatagramsCounted(), counted);
  }
}

// Every field of a record, at its place in both formats. Version 1 knows neither AS numbers nor
// masks, and the masks of version 5 make subnets.
TEST_F(Intake, FixedRecords) {
  FixedRecord record = {.src = "10.1.2.3", .dst = "198.51.100.4", .input = 0x0102};
  record.output = 0x0304;
  record.packets = 0x01020304;
  record.bytes = 0x05060708;
  record.first = 4294967295;
  record.last = 70000;
  record.tcp_flags = 0x1A;
  record.protocol = 17;
  record.src_as = 0xFFFE;
  record.dst_as = 64500;
  record.src_mask = 20;
  host_.Policy("<MeterSubnets>true</MeterSubnets>" + kWholeFlows);
  host_.Attach(meter_);
  const auto check = [&](const FixedPacket& packet, const std::string& as, const char* subnet) {
    host_.Forget();
    EXPECT_EQ(Send(packet.Build()), kStatusOk);
    const Texts lines = host_.Take();
    EXPECT_THAT(Digest(lines), Contains("17 10.1.2.3:51000 > 198.51.100.4:80 if 258 > 772, "
                                        "84281096 bytes 16909060 packets, " +
                                        as + ", from 999999920 499, to 999999990 500, closed"));
    EXPECT_THAT(lines, Contains(HasSubstr("COUNTERID_SUBNETS " + std::string(subnet))));
  };
  check(V1Packet().Times(80000, 1000000000, 500999999).Record(record), "as 0, as 0", "8 external");
  check(V5Packet().Times(80000, 1000000000, 500999999).Record(record), "as 65534, as 64500",
        "14 0A.01.00.00/14 ");
}

// The mode of sampling is no part of the rate, and nanoseconds are cut, not rounded.
TEST_F(Intake, FixedHeaders) {
  const struct {
    std::uint16_t sampling;
    const char* amounts;
  } cases[] = {{0, "1000 bytes 10 packets"},
               {0x4000, "1000 bytes 10 packets"},
               {0x8064, "100000 bytes 1000 packets"},
               {0xFFFF, "16383000 bytes 163830 packets"}};
  host_.Policy("<MeterNetflowSources>false</MeterNetflowSources>" + kWholeFlows).Attach(meter_);
  host_.Forget();
  for (const auto& row : cases) {
    Send(V5Packet().Times(80000, 1000000000, 1999999).Sampling(row.sampling).Record().Build());
    EXPECT_THAT(Said(), ElementsAre(AllOf(HasSubstr(row.amounts), HasSubstr("from 999999925 1,"))));
  }
}

TEST_F(Intake, FixedRecordsHaveNoTexts) {
  host_.Policy("<MeterNetflowSources>false</MeterNetflowSources>" + kWholeFlows).Attach(meter_);
  host_.Forget();
  for (const Bytes& datagram : {V1Packet().Record().Build(), V5Packet().Record().Build()}) {
    Send(V9(Learn({{234, 4}, {95, 4}, {8, 4}, {12, 4}, {1, 4}}), Data(Numbers({7, 7, 1, 2, 9}))));
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("in VRF:7, tag 0:7")));
    Send(datagram);
    EXPECT_THAT(Said(), ElementsAre(AllOf(Not(HasSubstr("VRF")), Not(HasSubstr("tag")))));
  }
}

// A relay's shim names the exporter.
TEST_F(Intake, Shim) {
  Bytes bad_end = Shimmed("10.9.9.9", V5Packet().Build());
  bad_end[11] = 'm';
  const auto cut = [](const Bytes& datagram) { return Cut(Shimmed("10.9.9.9", datagram), 24); };
  // clang-format off
  const struct {
    const char* name;
    Bytes datagram;
    Status status;
    Texts said;
    bool enabled = true;
  } cases[] = {
      {"Shimmed", Shimmed("10.9.9.9", V5Packet().Build()), 0, {"volume 24 of 0A.09.09.09"}},
      {"ShimOff", Shimmed("10.9.9.9", V5Packet().Build()), kStatusFailed, {}, false},
      {"NoShim", V5Packet().Build(), 0, {"volume 24 of C0.00.02.01"}},
      {"BadEnd", bad_end, kStatusFailed, {}},
      {"OneOfTwo", Shimmed("10.9.9.8", Shimmed("10.9.9.9", V5Packet().Build())), kStatusFailed, {}},
      // What is left behind a shim may be shorter than any header.
      {"V1Cut", cut(V1Packet().Build()), 1, {}},
      {"V5Cut", cut(V5Packet().Build()), 1, {}},
      {"V9Cut", cut(V9(Set(256)).Build()), 1, {"volume 12 of 0A.09.09.09"}},
      {"IpfixCut", cut(IpfixMessage().WithLength(12).Add(Set(256)).Build()), 1, {"volume 12 of 0A.09.09.09"}},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.Policy(row.enabled ? "<EnableShimTunnel>true</EnableShimTunnel>" : "");
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    EXPECT_EQ(host.Count(meter, row.datagram), row.status);
    EXPECT_EQ(Digest(host.Take()), row.said);
  }
  Start("<EnableShimTunnel>true</EnableShimTunnel>");
  Send(Shimmed("10.9.9.9", V9(Learn(kFlowFields)).Build()));
  Send(V9(Data(FlowRecord())), {.address = "10.9.9.9"});
  EXPECT_THAT(Said(), ElementsAre(kFlow));
}

// An IPv4 layer of its own size, apart from the payload.
class SplitPacket {
 public:
  SplitPacket(HostTrace* trace, const Bytes& ip, const Bytes& payload)
      : context_(trace, &ip_), ip_(trace, ip, &context_), payload_(trace, payload, &context_) {}

  IOmbrelProtData* Payload() { return &payload_; }

 private:
  class Context final : public HostObject<IOmbrelParseContext> {
   public:
    Context(HostTrace* trace, IOmbrelProtData* ip) : HostObject(trace, "the context"), ip_(ip) {}
    Status GetProtData(const IID& protocol, IOmbrelProtData** data) override {
      *data = protocol == UPID_IP ? ip_ : nullptr;
      return kStatusOk;
    }
    Status SetParsedLength(std::uint32_t /*length*/) override { return kStatusOk; }

   private:
    IOmbrelProtData* ip_;
  };
  class Layer final : public HostObject<IOmbrelProtData> {
   public:
    Layer(HostTrace* trace, const Bytes& bytes, IOmbrelParseContext* context)
        : HostObject(trace, "a layer"),
          size_(static_cast<std::uint32_t>(bytes.size())),
          bytes_(new std::uint8_t[bytes.size()]),
          context_(context) {
      std::ranges::copy(bytes, bytes_.get());
    }
    Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) override {
      *data = bytes_.get();
      *length = size_;
      return kStatusOk;
    }
    Status GetParseContext(IOmbrelParseContext** context) override {
      *context = context_;
      return kStatusOk;
    }

   private:
    std::uint32_t size_;
    std::unique_ptr<std::uint8_t[]> bytes_;  // a block of just their size
    IOmbrelParseContext* context_;
  };

  Context context_;
  Layer ip_;
  Layer payload_;
};

// The port stands behind the header that the layer claims; a message to the other meters copies the
// layer's first 24 bytes. Of a layer that ends before them nothing is read behind its end.
TEST_F(Intake, ShortIpLayers) {
  const Bytes udp = UdpHeaders({.address = "10.0.0.7", .port = 0x1234}, 100);
  Bytes options = Cut(Cut(udp, 20), 60);
  options[0] = 0x4F;
  options.insert(options.end(), {0x43, 0x21, 0, 0});
  Bytes no_length = udp;
  no_length[0] = 0x40;
  // clang-format off
  const struct {
    const char* name;
    Bytes layer;
    const char* exporter;  // null: no IPv4 layer
    const char* carried_end;
  } cases[] = {
      {"Empty", {}, nullptr, ""},
      {"OneByteShort", Cut(udp, 19), nullptr, ""},
      {"HeaderAlone", Cut(udp, 20), "10.0.0.7:0", "00000000"},
      {"HalfAPort", Cut(udp, 21), "10.0.0.7:0", "12000000"},
      {"Port", Cut(udp, 22), "10.0.0.7:4660", "12340000"},
      {"ThreeBytes", Cut(udp, 23), "10.0.0.7:4660", "12340800"},
      {"Whole", udp, "10.0.0.7:4660", "12340807"},
      {"OptionsCut", Cut(options, 60), "10.0.0.7:0", "00000000"},
      {"OptionsHalfAPort", Cut(options, 61), "10.0.0.7:0", "00000000"},
      {"Options", options, "10.0.0.7:17185", "00000000"},
      {"HeaderOfNoLength", no_length, "10.0.0.7:16384", "12340807"},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    const auto meter = host.Attach<CPINetflowMeter>();
    host.Forget();
    SplitPacket packet(host.Trace(), row.layer, V9(Learn({{8, 4}})).Build());
    EXPECT_EQ(meter->Count(host.Engine(), packet.Payload()), row.exporter == nullptr ? 0U : 1U);
    const Texts lines = host.Take();
    if (row.exporter == nullptr) {
      EXPECT_THAT(lines, IsEmpty());
      continue;
    }
    EXPECT_THAT(TemplatesOf(*meter), ElementsAre(row.exporter + std::string(" 256(8:4)")));
    const std::string& post = lines.front();  // ends with 24 bytes of the layer and 12 of the set
    EXPECT_EQ(post.substr(post.size() - 32, 8), row.carried_end);
  }
}

TEST_F(Intake, NoIpLayer) {
  Start(kSources);
  EXPECT_EQ(host_.CountWithoutIp(meter_, V5Packet().Record().Build()), kStatusOk);
  for (const char* operation : {"GetParseContext", "GetProtData", "GetBuffer"}) {
    host_.Fail(operation);
    EXPECT_EQ(Send(V5Packet().Record().Build()), kStatusOk) << operation;
    host_.NoFail(operation);
  }
  EXPECT_THAT(host_.Take(), IsEmpty());
  EXPECT_EQ(meter_->DatagramsCounted(), 0U);
}

TEST_F(Intake, AttachFails) {
  constexpr char kLoading[] = "Log 7 Loading netflow metering policy configuration";
  constexpr char kNoFile[] = "Log 4 Error preparing plugin configuration file. Cant proceed";
  host_.Fail("PreparePluginConfigFile");
  EXPECT_EQ(host_.Attach(meter_), kStatusFailed);
  EXPECT_THAT(host_.Take(), ElementsAre(kLoading, kNoFile));
  host_.NoFail("PreparePluginConfigFile").PolicyPath(CLSID_PI_NETFLOWMETER, std::nullopt);
  EXPECT_EQ(host_.Attach(meter_), kStatusFailed);
  EXPECT_THAT(host_.Take(), ElementsAre(kLoading, kNoFile));
  host_.PolicyPath(CLSID_PI_NETFLOWMETER, host_.PolicyPath()).Policy(kConflict);
  EXPECT_EQ(host_.Attach(meter_), kStatusFailed);
  EXPECT_THAT(host_.Take(),
              ElementsAre(kLoading, StartsWith("Log 4 Cant have both"),
                          "Log 4 Unable to load netflow policy information from configuration"));
}

TEST_F(Intake, DumpInterval) {
  Start("<TemplateDumpIntervalSeconds>60</TemplateDumpIntervalSeconds>");
  host_.WithQueries();
  const std::pair<std::uint64_t, bool> steps[] = {{1000, true},  {1060, false}, {1061, true},
                                                  {1061, false}, {500, false},  {1122, true}};
  for (const auto& [now, dump] : steps) {
    host_.Now(now);
    Send(V5Packet().Build());
    EXPECT_EQ(!host_.Take("GetWorkDirectory").empty(), dump) << now;
  }
}

}  // namespace
}  // namespace flow::test
