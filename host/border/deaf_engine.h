// SPDX-License-Identifier: Apache-2.0
// A statistics engine that counts nothing: for meters that learn what others knew.
#pragma once

#include "flowhandlers/host_interfaces.h"
#include "host/base/timestamp.h"
#include "host/border/host_object.h"

namespace flow::host {

class DeafEngine final : public HostObject<IOmbrelStatsEngine, IID_IOmbrelStatsEngine> {
 public:
  explicit DeafEngine(Timestamp now) : now_(now) {}

  Status UpdateCounter(const GUID&, const char*, int, std::uint64_t) override { return kStatusOk; }
  Status UpdateCounterKeyLen(const GUID&, int, const char*, int, std::uint64_t) override {
    return kStatusOk;
  }
  Status UpdateCounter2(const GUID&, int, const char*, int, std::uint64_t, int,
                        std::uint64_t) override {
    return kStatusOk;
  }
  Status UpdateCounter3(const GUID&, int, const char*, int, std::uint64_t, int, std::uint64_t, int,
                        std::uint64_t) override {
    return kStatusOk;
  }
  Status UpdateCounterMulti(const GUID&, int, const char*, int, const int*,
                            const std::uint64_t*) override {
    return kStatusOk;
  }
  Status UpdateCounterHashed2(const GUID&, std::uint32_t, const char*, int, std::uint64_t, int,
                              std::uint64_t) override {
    return kStatusOk;
  }
  Status SetKeyAttributes(const GUID&, const char*, const char*, const char*) override {
    return kStatusOk;
  }
  Status UpdateFlowCounter(const GUID&, const char*, int, std::uint64_t) override {
    return kStatusOk;
  }
  Status SetFlowTimes(const GUID&, const char*, const TimePair*, const TimePair*) override {
    return kStatusOk;
  }
  Status SetFlowDuration(const GUID&, const char*, std::uint32_t) override { return kStatusOk; }
  Status CloseFlow(const GUID&, const char*) override { return kStatusOk; }
  Status GetCurrentTime(std::uint64_t* seconds) override {
    *seconds = static_cast<std::uint64_t>(now_ / kMicrosPerSecond);
    return kStatusOk;
  }
  Status MarkRecord() override { return kStatusOk; }
  Status UpdateFlowVolume(const char*, std::uint64_t, std::uint64_t, std::uint64_t,
                          std::uint64_t) override {
    return kStatusOk;
  }
  Status TagFlow(const GUID&, const char*, const char*) override { return kStatusOk; }
  Status PostChannelMessage(const GUID&, const IID&, std::uint32_t, void*) override {
    return kStatusOk;
  }
  Status SetKeyProperty(const GUID&, const char*, const char*, const char*) override {
    return kStatusOk;
  }
  Status UpdateFlowCounterWithText(const GUID&, const char*, int, std::uint64_t,
                                   const char*) override {
    return kStatusOk;
  }

 private:
  Timestamp now_;
};

}  // namespace flow::host
