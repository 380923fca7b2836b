// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "bench/traffic.h"
#include "bench/workload.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/packet.h"
#include "tests/support/sflow_builder.h"

namespace flow::bench {
namespace {

using test::Bytes;
using test::Fields;
using test::Wire;

constexpr std::uint32_t kExporter = 0xC0000201;  // 192.0.2.1
constexpr std::uint16_t kTemplate = 256;

// So many records that keys differ, so few that a log of their host calls fits the caches beside
// the engine.
constexpr int kDatagrams = 40;

class Builder {
 public:
  Builder(std::string_view name, MeterKind meter) {
    workload_.name = name;
    workload_.meter = meter;
  }

  Flow Next() { return traffic_.Next(); }
  Flow NextTcp() {
    Flow flow = Next();
    while (flow.protocol != 6) flow = Next();
    return flow;
  }
  Random& Draw() { return draw_; }

  void NeedSetting(std::string_view setting) { workload_.settings = setting; }
  void Learn(Bytes payload) {
    workload_.templates.push_back(MakeDatagram(kExporter, std::move(payload)));
  }
  void Send(Bytes payload, std::uint64_t items) {
    workload_.items += items;
    workload_.datagram_bytes += payload.size();
    workload_.datagrams.push_back(MakeDatagram(kExporter, std::move(payload)));
  }
  void Expect(std::uint64_t bytes) {
    ++workload_.metered;
    workload_.metered_bytes += bytes;
  }
  Workload Take() { return std::move(workload_); }

 private:
  Workload workload_{};
  Traffic traffic_{1};
  Random draw_{2};
};

Bytes V5Datagram(Builder* builder, int records) {
  test::V5Packet packet;
  packet.Times(kExportUptime, kExportSeconds);
  for (int i = 0; i < records; ++i) {
    const Flow f = builder->Next();
    packet.Record({.src = f.source,
                   .dst = f.destination,
                   .next_hop = f.next_hop,
                   .input = f.input,
                   .output = f.output,
                   .packets = f.packets,
                   .bytes = f.bytes,
                   .first = f.first,
                   .last = f.last,
                   .src_port = f.source_port,
                   .dst_port = f.destination_port,
                   .tcp_flags = f.tcp_flags,
                   .protocol = f.protocol,
                   .src_as = f.source_as,
                   .dst_as = f.destination_as,
                   .src_mask = f.source_mask,
                   .dst_mask = f.destination_mask});
    builder->Expect(f.bytes);
  }
  return packet.Build();
}

Workload V5(std::string_view name) {
  Builder builder(name, MeterKind::kNetflow);
  for (int i = 0; i < kDatagrams; ++i) builder.Send(V5Datagram(&builder, 30), 30);
  return builder.Take();
}

// The 20 fields that routers put into their NetFlow v9 records.
const Fields kRouterFields = {{1, 4},  {2, 4},  {4, 1},  {5, 1},  {6, 1},  {7, 2},  {8, 4},
                              {9, 1},  {10, 2}, {11, 2}, {12, 4}, {13, 1}, {14, 2}, {15, 4},
                              {16, 2}, {17, 2}, {18, 4}, {21, 4}, {22, 4}, {48, 1}};

Wire RouterRecord(const Flow& f) {
  Wire wire;
  wire.U32(f.bytes).U32(f.packets).U8(f.protocol).U8(0).U8(f.tcp_flags);
  wire.U16(f.source_port).Ip(f.source).U8(f.source_mask).U16(f.input);
  wire.U16(f.destination_port).Ip(f.destination).U8(f.destination_mask).U16(f.output);
  wire.Ip(f.next_hop).U16(f.source_as).U16(f.destination_as).Ip(f.next_hop);
  wire.U32(f.last).U32(f.first).U8(1);
  return wire;
}

// V9 sends data sets of `records` records, each made by `make`, which is told its place in the set,
// gives the wire and says what to expect.
template <class Make>
Workload V9(std::string_view name, const Fields& fields, int records, Make make) {
  Builder builder(name, MeterKind::kNetflow);
  builder.Learn(test::V9Packet().Add(test::V9Templates().Template(kTemplate, fields)).Build());
  for (int i = 0; i < kDatagrams; ++i) {
    test::Set set = test::DataSet(kTemplate);
    for (int j = 0; j < records; ++j) set.Record(make(&builder, j));
    builder.Send(test::V9Packet().Times(kExportUptime, kExportSeconds).Add(set.PadTo4()).Build(),
                 static_cast<std::uint64_t>(records));
  }
  return builder.Take();
}

Workload V9Router(std::string_view name) {
  return V9(name, kRouterFields, 26, [](Builder* builder, int) {
    const Flow f = builder->Next();
    builder->Expect(f.bytes);
    return RouterRecord(f);
  });
}

// Flows that are reported where they enter and, every other one, again where they leave; each with
// the counts of both directions, so that a record is metered twice.
Workload V9InOut(std::string_view name) {
  Fields fields = kRouterFields;
  fields.insert(fields.end(), {{23, 4}, {24, 4}, {61, 1}});
  Flow flow{};
  bool again = false;
  return V9(name, fields, 22, [&](Builder* builder, int place) {
    if (place == 0) again = false;
    if (!again) flow = builder->Next();
    Wire wire = RouterRecord(flow);
    wire.U32(flow.bytes / 3 + 1).U32(flow.packets).U8(again ? 1 : 0);
    if (!again) {
      builder->Expect(flow.bytes);
      builder->Expect(flow.bytes / 3 + 1);
    }
    again = !again && builder->Draw().Below(2) == 0;
    return wire;
  });
}

template <class Make>
void SendIpfix(Builder* builder, const Fields& fields, int records, Make make) {
  builder->Learn(
      test::IpfixMessage().Add(test::IpfixTemplates().Template(kTemplate, fields)).Build());
  for (int i = 0; i < kDatagrams; ++i) {
    test::Set set = test::DataSet(kTemplate);
    for (int j = 0; j < records; ++j) {
      const Flow f = builder->Next();
      builder->Expect(f.bytes);
      set.Record(make(f));
    }
    builder->Send(test::IpfixMessage().ExportTime(kExportSeconds).Add(set).Build(),
                  static_cast<std::uint64_t>(records));
  }
}

std::uint64_t Milliseconds(std::uint32_t uptime) {
  return std::uint64_t{kExportSeconds} * 1000 - (kExportUptime - uptime);
}

constexpr std::uint32_t kPrivate = 32473;   // the number that RFC 5612 keeps for examples
constexpr std::uint32_t kFirewall = 25461;  // the vendor whose two text elements are decoded

// A firewall's records: translated addresses, how the flow ended, and texts of its own.
Workload IpfixEnterprise(std::string_view name) {
  const Fields fields = {{8, 4},
                         {12, 4},
                         {225, 4},
                         {226, 4},
                         {7, 2},
                         {11, 2},
                         {227, 2},
                         {228, 2},
                         {4, 1},
                         {1, 8},
                         {2, 8},
                         {10, 4},
                         {14, 4},
                         {152, 8},
                         {153, 8},
                         {136, 1},
                         {1000, 4, kPrivate},
                         {1001, 8, kPrivate},
                         {346, 4},
                         {56701 & 0x7FFF, 32, kFirewall},
                         {56702 & 0x7FFF, 64, kFirewall}};
  Builder builder(name, MeterKind::kNetflow);
  constexpr std::string_view kApplications[] = {"web-browsing", "ssl", "dns", "smtp", "ntp"};
  SendIpfix(&builder, fields, 7, [&](const Flow& f) {
    const std::uint32_t draw = builder.Draw().Below(400);
    Wire wire;
    wire.Ip(f.source).Ip(f.destination).Ip(f.source).Ip(f.destination);
    wire.U16(f.source_port).U16(f.destination_port).U16(f.source_port).U16(f.destination_port);
    wire.U8(f.protocol).U64(f.bytes).U64(f.packets).U32(f.input).U32(f.output);
    wire.U64(Milliseconds(f.first)).U64(Milliseconds(f.last)).U8(3).U32(7).U64(draw);
    wire.U32(kFirewall).Text(kApplications[draw % 5], 32);
    wire.Text("corp\\user" + std::to_string(draw), 64);
    return wire;
  });
  return builder.Take();
}

Workload IpfixIpv6(std::string_view name) {
  const Fields fields = {{27, 16}, {28, 16}, {7, 2},  {11, 2},  {4, 1},   {6, 1},  {5, 1},
                         {1, 8},   {2, 8},   {10, 4}, {14, 4},  {29, 1},  {30, 1}, {16, 4},
                         {17, 4},  {31, 4},  {60, 1}, {62, 16}, {152, 8}, {153, 8}};
  Builder builder(name, MeterKind::kNetflow);
  SendIpfix(&builder, fields, 12, [](const Flow& f) {
    Wire wire;
    wire.Raw(f.source6).Raw(f.destination6).U16(f.source_port).U16(f.destination_port);
    wire.U8(f.protocol).U8(f.tcp_flags).U8(0).U64(f.bytes).U64(f.packets);
    wire.U32(f.input).U32(f.output).U8(f.source_mask).U8(f.destination_mask);
    wire.U32(f.source_as).U32(f.destination_as).U32(0).U8(6).Zeros(16);
    wire.U64(Milliseconds(f.first)).U64(Milliseconds(f.last));
    return wire;
  });
  return builder.Take();
}

// Records of different lengths: a URL that is passed over and a text that is kept.
Workload IpfixVariable(std::string_view name) {
  const Fields fields = {{8, 4},
                         {12, 4},
                         {7, 2},
                         {11, 2},
                         {4, 1},
                         {6, 1},
                         {1, 4},
                         {2, 4},
                         {10, 4},
                         {14, 4},
                         {150, 4},
                         {151, 4},
                         {461, test::kVariableLength},
                         {93, test::kVariableLength, kPrivate}};
  Builder builder(name, MeterKind::kNetflow);
  builder.NeedSetting("<AllowVariableLengthStrings>true</AllowVariableLengthStrings>");
  SendIpfix(&builder, fields, 17, [&](const Flow& f) {
    const std::uint32_t draw = builder.Draw().Below(400);
    Wire wire;
    wire.Ip(f.source).Ip(f.destination).U16(f.source_port).U16(f.destination_port);
    wire.U8(f.protocol).U8(f.tcp_flags).U32(f.bytes).U32(f.packets).U32(f.input).U32(f.output);
    wire.U32(kExportSeconds - 30).U32(kExportSeconds - draw % 20);
    wire.Variable(std::string("/index/") + std::string(draw % 24, 'x'));
    wire.Variable("service-" + std::to_string(draw));
    return wire;
  });
  return builder.Take();
}

// Samples of tagged Ethernet frames with the first 128 bytes of a TCP packet, and the switch's word
// on its VLANs.
Workload SFlowTcp(std::string_view name) {
  constexpr std::uint32_t kRate = 512;
  constexpr int kSamples = 7;
  Builder builder(name, MeterKind::kSFlow);
  for (int i = 0; i < kDatagrams; ++i) {
    test::SFlowPacket packet;
    packet.Agent(test::SFlowAddress(kExporter));
    for (int j = 0; j < kSamples; ++j) {
      const Flow f = builder.NextTcp();
      const std::uint32_t size = 64 + f.bytes % 1400;
      test::Frame frame;
      frame.Raw(std::to_array<std::uint8_t>({2, 0, 0, 0, 1, static_cast<std::uint8_t>(f.input)}));
      frame.Raw(std::to_array<std::uint8_t>({2, 0, 0, 0, 2, static_cast<std::uint8_t>(f.output)}));
      frame.U16(0x8100);
      frame.Vlan(static_cast<std::uint16_t>(f.input * 10));
      frame.Ipv4({.source = f.source, .destination = f.destination});
      frame.Tcp(f.source_port, f.destination_port, f.tcp_flags).Zeros(70);
      packet.Flow({.elements = {test::SampledHeader(frame, {.packet_size = size}),
                                {1001, test::Words({f.input * 10U, 0, f.output * 10U, 0})}},
                   .rate = kRate,
                   .input = f.input,
                   .output = f.output});
      builder.Expect(std::uint64_t{size} * kRate);
    }
    builder.Send(packet.Build(), kSamples);
  }
  return builder.Take();
}

// What a broken or hostile exporter sends: nothing of it may be metered.
Workload NetflowMalformed(std::string_view name) {
  Builder builder(name, MeterKind::kNetflow);
  Workload good = V5({});
  const Wire rubbish = Wire().Zeros(1200);
  for (int i = 0; i < kDatagrams; ++i) {
    Bytes cut = good.datagrams[static_cast<std::size_t>(i)].payload;
    cut.resize(cut.size() - 1);
    builder.Send(cut, 1);
    builder.Send(test::V9Packet().Add(test::DataSet(999).Raw(rubbish)).Build(), 1);
    builder.Send(test::IpfixMessage().Add(test::DataSet(999).Raw(rubbish).WithLength(3)).Build(),
                 1);
    builder.Send(test::IpfixMessage().Add(test::DataSet(999).Raw(rubbish)).WithLength(9000).Build(),
                 1);
    builder.Send(Wire().U16(7).Raw(rubbish.Get()).Get(), 1);
  }
  return builder.Take();
}

Workload SFlowMalformed(std::string_view name) {
  Builder builder(name, MeterKind::kSFlow);
  const Workload good = SFlowTcp({});
  for (const Datagram& datagram : good.datagrams) {
    for (const std::size_t size : {20, 60, 100, 150}) {  // all within the first sample
      builder.Send({datagram.payload.begin(), datagram.payload.begin() + size}, 1);
    }
  }
  return builder.Take();
}

struct Row {
  std::string_view name;
  Workload (*make)(std::string_view name);
};
constexpr Row kWorkloads[] = {
    {"v5", V5},
    {"v9_router", V9Router},
    {"v9_in_out", V9InOut},
    {"ipfix_enterprise", IpfixEnterprise},
    {"ipfix_ipv6", IpfixIpv6},
    {"ipfix_variable", IpfixVariable},
    {"sflow_tcp", SFlowTcp},
    {"netflow_malformed", NetflowMalformed},
    {"sflow_malformed", SFlowMalformed},
};

std::string On(std::initializer_list<std::string_view> switches) {
  std::string settings;
  for (const std::string_view name : switches) {
    settings.append("<").append(name).append(">true</").append(name).append(">");
  }
  return settings;
}

}  // namespace

Datagram MakeDatagram(std::uint32_t exporter, std::vector<std::uint8_t> payload) {
  Datagram datagram{};
  std::ranges::copy(test::UdpHeaders({.address = exporter}, payload.size()),
                    datagram.headers.begin());
  datagram.payload = std::move(payload);
  return datagram;
}

std::string PolicySettings(std::string_view policy) {
  if (policy == "default") return {};
  if (policy == "exact") {
    return On({"Count64Bit", "TemplatesPerDomain", "ExactTimes", "UseSamplingSpace", "CountLeftOut",
               "SharePaddedTemplates", "MeterIPv6Samples", "SkipUndecodedSamples"});
  }
  return On({"MeterTCPConnections", "MeterAppConnections", "CheckPacketsForCorruption",
             "EnableShimTunnel", "AddEdges", "MeterLinkAS", "AllowVariableLengthStrings",
             "TagFlowsWithDirection"}) +
         "<HomeASNumbers>64512,64513,64514</HomeASNumbers>"
         "<FilterHostsExclude>198.51.100.1,198.51.100.2</FilterHostsExclude>"
         "<FilterInterfacesExclude>198.51.100.1_1,198.51.100.2_2</FilterInterfacesExclude>";
}

std::vector<std::string_view> WorkloadNames() {
  std::vector<std::string_view> names;
  for (const Row& row : kWorkloads) names.push_back(row.name);
  return names;
}

Workload MakeWorkload(std::string_view name) {
  const auto* const row = std::ranges::find(kWorkloads, name, &Row::name);
  if (row == std::end(kWorkloads)) {
    std::fprintf(stderr, "no workload is named %.*s\n", static_cast<int>(name.size()), name.data());
    std::exit(2);
  }
  return row->make(row->name);
}

}  // namespace flow::bench
