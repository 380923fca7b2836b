// SPDX-License-Identifier: Apache-2.0
// What the tests of the NetFlow meter share: a meter with a host that writes down its calls, and
// short texts for what it did.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "netflow/netflow_meter.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/recording_host.h"

namespace flow::test {

using Texts = std::vector<std::string>;

// Settings under which the calls for a record say what was decoded, and little else. The first of
// two settings of one name counts, so a test's own come before these.
inline const std::string kWholeFlows =
    "<MeterHosts>false</MeterHosts><MeterSubnets>false</MeterSubnets><Meterv4v6>false</Meterv4v6>"
    "<MeterBothPorts>false</MeterBothPorts><MatchBiDirectionalFlows>false</MatchBiDirectionalFlows>"
    "<MergeMultipleSources>false</MergeMultipleSources><MergeHTTP>false</MergeHTTP>"
    "<MergeHTTPS>false</MergeHTTPS><MergeDNS>false</MergeDNS>"
    "<LogTemplateMessages>false</LogTemplateMessages>";
// Beside that, nothing but the flow and its volume.
inline const std::string kFlowsOnly =
    "<MeterHosts>false</MeterHosts><MeterSubnets>false</MeterSubnets><Meterv4v6>false</Meterv4v6>"
    "<MeterBothPorts>false</MeterBothPorts><MatchBiDirectionalFlows>false</MatchBiDirectionalFlows>"
    "<MergeMultipleSources>false</MergeMultipleSources><MergeHTTP>false</MergeHTTP>"
    "<MergeHTTPS>false</MergeHTTPS><MergeDNS>false</MergeDNS><MeterASN>false</MeterASN>"
    "<LogTemplateMessages>false</LogTemplateMessages><MeterMasks>false</MeterMasks>"
    "<MeterApplications>false</MeterApplications><MeterMAC>false</MeterMAC>"
    "<MeterNetflowInterfaces>false</MeterNetflowInterfaces><MeterIPNextHop>false</MeterIPNextHop>"
    "<MeterNetflowSources>false</MeterNetflowSources><MeterBGPNextHop>false</MeterBGPNextHop>"
    "<UseRouterTimestamps>false</UseRouterTimestamps>";

// A template with what makes a flow of a record, and such a record.
inline const Fields kFlowFields = {{8, 4},  {12, 4}, {7, 2}, {11, 2}, {4, 1},
                                   {10, 4}, {14, 4}, {2, 4}, {1, 4}};
Wire FlowRecord();
inline constexpr char kFlow[] = "6 10.0.0.1:51000 > 10.0.0.2:80 if 3 > 7, 1000 bytes 10 packets";

Wire Numbers(std::initializer_list<std::uint32_t> numbers);  // of 4 bytes

// Digest says in short what a host's lines say, in their order: for each metered record as kFlow,
// and then whatever its calls say about AS numbers, prefixes, next hops, texts, times and hardware
// addresses; "volume 24 of C0.00.02.01" for the size of an export datagram; names, properties and
// messages as they are.
Texts Digest(const Texts& lines);

// HexText gives two lower-case digits a byte.
std::string HexText(const Bytes& bytes);

// TemplatesOf lists what a meter has learnt, one text for each exporter, templates as
// id(type:length
// ...): "192.0.2.1:50000 256(8:4 12:4) 257()".
Texts TemplatesOf(const CPINetflowMeter& meter);

class MeterTest : public testing::Test {
 protected:
  // Start attaches the meter, under kFlowsOnly beside its own settings.
  void Start(std::string_view settings = {}, std::string_view beside = {});
  Status Send(const Bytes& datagram, const Exporter& from = {}) {
    return host_.Count(meter_, datagram, from);
  }
  Status Send(const V9Packet& packet, const Exporter& from = {}) {
    return Send(packet.Build(), from);
  }
  // Said is the digest of the calls since the last look.
  Texts Said() { return Digest(host_.Take()); }

  RecordingHost host_;
  ComponentOf<CPINetflowMeter> meter_;
};

inline V9Packet V9(const Set& set) { return V9Packet().Add(set); }
inline V9Packet V9(const Set& first, const Set& second) { return V9(first).Add(second); }
inline Set Learn(const Fields& fields, std::uint16_t id = 256) {
  return V9Templates().Template(id, fields);
}
inline Set Data(const Wire& record, std::uint16_t id = 256) { return DataSet(id).Record(record); }

}  // namespace flow::test
