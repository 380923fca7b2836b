// SPDX-License-Identifier: Apache-2.0
#include "bench/engines.h"

namespace flow::bench {

Status NullEngine::QueryInterface(const IID&, void** out) {
  *out = nullptr;
  return kStatusNoInterface;
}

Status NullEngine::UpdateCounter(const GUID&, const char*, int, std::uint64_t) { return kStatusOk; }

Status NullEngine::UpdateCounterKeyLen(const GUID&, int, const char*, int, std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::UpdateCounter2(const GUID&, int, const char*, int, std::uint64_t, int,
                                  std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::UpdateCounter3(const GUID&, int, const char*, int, std::uint64_t, int,
                                  std::uint64_t, int, std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::UpdateCounterMulti(const GUID&, int, const char*, int, const int*,
                                      const std::uint64_t*) {
  return kStatusOk;
}

Status NullEngine::UpdateCounterHashed2(const GUID&, std::uint32_t, const char*, int, std::uint64_t,
                                        int, std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::SetKeyAttributes(const GUID&, const char*, const char*, const char*) {
  return kStatusOk;
}

Status NullEngine::UpdateFlowCounter(const GUID&, const char*, int, std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::SetFlowTimes(const GUID&, const char*, const TimePair*, const TimePair*) {
  return kStatusOk;
}

Status NullEngine::SetFlowDuration(const GUID&, const char*, std::uint32_t) { return kStatusOk; }

Status NullEngine::CloseFlow(const GUID&, const char*) { return kStatusOk; }

Status NullEngine::GetCurrentTime(std::uint64_t* seconds) {
  *seconds = 1000;
  return kStatusOk;
}

Status NullEngine::MarkRecord() { return kStatusOk; }

Status NullEngine::UpdateFlowVolume(const char*, std::uint64_t, std::uint64_t, std::uint64_t,
                                    std::uint64_t) {
  return kStatusOk;
}

Status NullEngine::TagFlow(const GUID&, const char*, const char*) { return kStatusOk; }

Status NullEngine::PostChannelMessage(const GUID&, const IID&, std::uint32_t, void*) {
  return kStatusOk;
}

Status NullEngine::SetKeyProperty(const GUID&, const char*, const char*, const char*) {
  return kStatusOk;
}

Status NullEngine::UpdateFlowCounterWithText(const GUID&, const char*, int, std::uint64_t,
                                             const char*) {
  return kStatusOk;
}

}  // namespace flow::bench
