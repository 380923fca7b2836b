// SPDX-License-Identifier: Apache-2.0
// The functions of flowhandlers.h. Nothing that is thrown behind them leaves them.

#include "flowhandlers.h"

#include <cstdio>
#include <cstring>
#include <limits>

#include "capi/collector.h"
#include "capi/numbers.h"

#define FH_EXPORT __attribute__((visibility("default")))

namespace {

using flow::capi::Fault;

constexpr std::size_t kLongestDatagram = 65507;  // what UDP over IPv4 carries

thread_local char t_error[512] = "";

void SetError(const char* text) { std::snprintf(t_error, sizeof t_error, "%s", text); }

// Guarded gives what the function returns, or `failed` where it throws.
template <class Result, class Function>
Result Guarded(Result failed, const Function& function) noexcept {
  try {
    return function();
  } catch (const std::exception& error) {
    SetError(error.what());
  } catch (...) {
    SetError("a callback threw something");
  }
  return failed;
}

// SizedCopy takes a structure of an older or newer caller: members that it does not have are zero,
// those behind ours have to be.
template <class Structure>
Structure SizedCopy(const Structure& given, const char* name) {
  Structure copy{};
  if (given.size < sizeof(std::size_t)) throw Fault(std::string(name) + ": size is not set");
  if (given.size > sizeof(Structure)) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&given);
    for (std::size_t i = sizeof(Structure); i < given.size; ++i) {
      if (bytes[i] != 0) throw Fault(std::string(name) + ": made for a newer version");
    }
  }
  std::memcpy(&copy, &given, std::min(given.size, sizeof(Structure)));
  return copy;
}

}  // namespace

extern "C" {

FH_EXPORT fh_collector* fh_open(const char* policy_directory, const fh_callbacks* callbacks,
                                const fh_options* options) {
  return Guarded<fh_collector*>(nullptr, [&] {
    if (policy_directory == nullptr) throw Fault("no policy directory");
    fh_callbacks wanted{};
    if (callbacks != nullptr) wanted = SizedCopy(*callbacks, "fh_callbacks");
    fh_options chosen{};
    if (options != nullptr) chosen = SizedCopy(*options, "fh_options");
    return flow::capi::Open(policy_directory, wanted, chosen);
  });
}

FH_EXPORT int fh_handle(fh_collector* collector, int protocol, std::uint32_t source,
                        std::uint16_t port, const void* payload, std::size_t length,
                        std::uint64_t seconds) {
  using flow::kit::Protocol;
  return Guarded<int>(FH_FAILED, [&]() -> int {
    if (collector == nullptr) throw Fault("no collector");
    if (protocol != FH_NETFLOW && protocol != FH_SFLOW) throw Fault("no such protocol");
    if (length > kLongestDatagram) throw Fault("no datagram is so long");
    const bool netflow = protocol == FH_NETFLOW;
    collector->datagram.Set({source, port},
                            {0, netflow ? flow::kit::kNetflowPort : flow::kit::kSFlowPort},
                            static_cast<const std::uint8_t*>(payload), length);
    collector->batch.SetTime(seconds);
    const bool metered = collector->meters.Handle(netflow ? Protocol::kNetflow : Protocol::kSFlow,
                                                  collector->datagram, collector->batch);
    collector->batch.Deliver();
    return metered ? FH_OK : FH_REFUSED;
  });
}

FH_EXPORT int fh_learn(fh_collector* collector, int channel, const void* data, std::size_t length) {
  return Guarded<int>(FH_FAILED, [&]() -> int {
    const GUID* const id = flow::capi::ChannelOf(channel);
    if (id == nullptr) throw Fault("no such channel");
    if (length > std::numeric_limits<std::uint16_t>::max()) return FH_REFUSED;
    const auto* const bytes = static_cast<const char*>(data);
    std::string copy(bytes, length);  // the plug-in may write into a message
    collector->meters.Deliver(*id, copy.data(), static_cast<std::uint32_t>(length));
    collector->batch.Deliver();
    return FH_OK;
  });
}

FH_EXPORT std::uint64_t fh_records(const fh_collector* collector) {
  return collector->batch.records();
}

FH_EXPORT void fh_close(fh_collector* collector) {
  if (collector == nullptr) return;
  Guarded(0, [&] {
    flow::capi::Close(collector);
    return 0;
  });
}

FH_EXPORT const char* fh_error() { return t_error; }

FH_EXPORT const char* fh_version() { return FLOWHANDLERS_VERSION; }

}  // extern "C"
