// SPDX-License-Identifier: Apache-2.0
// A statistics engine that writes every call into the trace and passes it on.
#pragma once

#include "flowhandlers/host_interfaces.h"
#include "host/border/call_trace.h"
#include "host/border/host_object.h"

namespace flow::host {

class TraceEngine final : public HostObject<IOmbrelStatsEngine, IID_IOmbrelStatsEngine> {
 public:
  // Both outlive the decorator.
  TraceEngine(IOmbrelStatsEngine& engine, CallTrace& trace) : engine_(engine), trace_(trace) {}

  Status UpdateCounter(const GUID& group, const char* key, int meter, std::uint64_t value) override;
  Status UpdateCounterKeyLen(const GUID& group, int keyLength, const char* key, int meter,
                             std::uint64_t value) override;
  Status UpdateCounter2(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2) override;
  Status UpdateCounter3(const GUID& group, int keyLength, const char* key, int meter1,
                        std::uint64_t value1, int meter2, std::uint64_t value2, int meter3,
                        std::uint64_t value3) override;
  Status UpdateCounterMulti(const GUID& group, int keyLength, const char* key, int count,
                            const int* meters, const std::uint64_t* values) override;
  Status UpdateCounterHashed2(const GUID& group, std::uint32_t keyHash, const char* key, int meter1,
                              std::uint64_t value1, int meter2, std::uint64_t value2) override;
  Status SetKeyAttributes(const GUID& group, const char* key, const char* label,
                          const char* description) override;
  Status UpdateFlowCounter(const GUID& flowGroup, const char* flowKey, int meter,
                           std::uint64_t value) override;
  Status SetFlowTimes(const GUID& flowGroup, const char* flowKey, const TimePair* start,
                      const TimePair* end) override;
  Status SetFlowDuration(const GUID& flowGroup, const char* flowKey,
                         std::uint32_t milliseconds) override;
  Status CloseFlow(const GUID& flowGroup, const char* flowKey) override;
  Status GetCurrentTime(std::uint64_t* seconds) override;
  Status MarkRecord() override;
  Status UpdateFlowVolume(const char* flowKey, std::uint64_t bytesOneWay,
                          std::uint64_t bytesOtherWay, std::uint64_t packetsOneWay,
                          std::uint64_t packetsOtherWay) override;
  Status TagFlow(const GUID& flowGroup, const char* flowKey, const char* tag) override;
  Status PostChannelMessage(const GUID& channel, const IID& sender, std::uint32_t length,
                            void* data) override;
  Status SetKeyProperty(const GUID& group, const char* key, const char* name,
                        const char* value) override;
  Status UpdateFlowCounterWithText(const GUID& flowGroup, const char* flowKey, int meter,
                                   std::uint64_t value, const char* text) override;

 private:
  IOmbrelStatsEngine& engine_;
  CallTrace& trace_;
};

}  // namespace flow::host
