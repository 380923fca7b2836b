// SPDX-License-Identifier: Apache-2.0
// The policy files of both meters. A file that cannot be parsed ends the process by contract, so
// only those that can are loaded.

#include <algorithm>
#include <string>

#include "fuzz/memory_file.h"
#include "netflow/netflow_meter.h"
#include "sflow/sflow_meter.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/recording_host.h"
#include "util/xmlParser.h"

namespace {

using flow::test::RecordingHost;

bool CanBeParsed(const std::string& path, const std::uint8_t* data, std::size_t size) {
  XMLNode::setGlobalOptions(1,
                            XMLNode::guessUTF8ParsingParameterValue(
                                data, static_cast<int>(std::min<std::size_t>(size, 200)), 1),
                            1);
  XMLResults results{};
  XMLNode::parseFile(path.c_str(), "OmbrelPluginConfiguration", &results);
  return results.error == 0;
}

RecordingHost& Host(const std::string& path) {
  static RecordingHost host;
  host.Recording(false).WorkDirectory(std::nullopt).DataDirectory("/nonexistent");
  host.PolicyPath(CLSID_PI_NETFLOWMETER, path).PolicyPath(CLSID_PI_SFLOWMETER, path);
  return host;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const flow::fuzz::MemoryFile file;
  file.Write(data, size);
  if (!CanBeParsed(file.Path(), data, size)) return 0;
  RecordingHost& host = Host(file.Path());
  static const auto datagram =
      flow::test::V5Packet().Record().Record({.src = "10.0.0.3", .protocol = 17}).Build();
  const flow::test::ComponentOf<CPINetflowMeter> netflow;
  // A load that failed leaves what it read in force, so the meter works on all the same.
  host.Attach(netflow);
  host.Count(netflow, datagram);
  const flow::test::ComponentOf<CPISFlowMeter> sflow;
  host.Attach(sflow);
  return 0;
}
