// SPDX-License-Identifier: Apache-2.0
// A whole sFlow meter.

#include "fuzz/datagrams.h"
#include "fuzz/meters.h"
#include "sflow/sflow_meter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const flow::fuzz::Input input = flow::fuzz::Parse(data, size);
  flow::test::RecordingHost& host = flow::fuzz::ChoosePolicy(input.policy);
  const auto meter = host.Attach<CPISFlowMeter>();
  for (const flow::fuzz::Datagram& datagram : input.datagrams) {
    const flow::fuzz::StepWatch watch(host, datagram.payload.size());
    host.CountPacket(meter, flow::fuzz::HeadersOf(datagram), datagram.payload);
  }
  return 0;
}
