// SPDX-License-Identifier: Apache-2.0
// The least host that a meter runs in: it answers at once, keeps nothing and counts nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "bench/workload.h"
#include "flowhandlers/plugin_interfaces.h"
#include "tests/support/component.h"
#include "tests/support/policy_file.h"

namespace flow::bench {

// The built library, loaded as a host loads it: the one that the environment variable FLOW_LIBRARY
// names, else that of this build. Stays loaded until the program ends.
test::Component NewMeterOfLibrary(MeterKind kind);

class CallLog;

struct MeterSettings {
  std::string policy;               // elements of the policy file
  std::uint32_t home_networks = 0;  // beside 10.0.0.0/8; none of them holds a host of the traffic
};

class MeterHost {
 public:
  // Attaches the meter. A meter that cannot be attached ends the program.
  MeterHost(test::Component meter, const MeterSettings& settings);
  ~MeterHost();
  MeterHost(const MeterHost&) = delete;
  MeterHost& operator=(const MeterHost&) = delete;

  // Count hands one datagram to the meter. `headers` is its IPv4 and UDP header.
  Status Count(IOmbrelStatsEngine* engine, std::span<const std::uint8_t> headers,
               std::span<const std::uint8_t> payload);
  void CountAll(IOmbrelStatsEngine* engine, std::span<const Datagram> datagrams);

  IOmbrelContainer* Site();
  // LogSiteCalls has the site's answers about home addresses logged as well; null ends it.
  void LogSiteCalls(CallLog* log);

 private:
  class HostSite;
  class Layer;
  class Context;
  struct Parts;

  test::PolicyFile policy_;
  std::unique_ptr<Parts> parts_;
  test::Component meter_;
  IOmbrelSimpleCounter* counter_;
};

}  // namespace flow::bench
