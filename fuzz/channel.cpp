// SPDX-License-Identifier: Apache-2.0
// Messages on the template channel, each followed by the datagrams that it may have taught the
// meter to read. Entries with bit 7 of their exporter set are messages, the others datagrams.

#include "flowhandlers/identifiers.h"
#include "fuzz/datagrams.h"
#include "fuzz/meters.h"
#include "netflow/netflow_meter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const flow::fuzz::Input input = flow::fuzz::Parse(data, size);
  flow::test::RecordingHost& host = flow::fuzz::ChoosePolicy(input.policy);
  const auto meter = host.Attach<CPINetflowMeter>();
  for (const flow::fuzz::Datagram& entry : input.datagrams) {
    const flow::fuzz::StepWatch watch(host, entry.payload.size());
    if ((entry.exporter & 0x80) != 0) {
      host.Deliver(meter, CHANNELID_NETFLOW_TEMPLATES, entry.payload);
    } else {
      host.CountPacket(meter, flow::fuzz::HeadersOf(entry), entry.payload);
    }
  }
  return 0;
}
