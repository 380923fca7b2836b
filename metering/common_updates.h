// SPDX-License-Identifier: Apache-2.0
// The counter updates that flow records and sampled packets share. Which of them are made, by which
// rules and in which order is each meter's own matter. They are inlined: a call costs as much as
// the work.
#pragma once

#include <cstdint>
#include <string_view>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/counter_keys.h"
#include "flowhandlers/host_interfaces.h"

namespace flow {

// IP protocols with rules of their own.
inline constexpr std::uint32_t kIcmp = 1;
inline constexpr std::uint32_t kTcp = 6;
inline constexpr std::uint32_t kUdp = 17;
inline constexpr std::uint32_t kGre = 47;
inline constexpr std::uint32_t kEsp = 50;
inline constexpr std::uint32_t kIcmpv6 = 58;

inline constexpr std::uint32_t kFirstClientPort = 1024;
inline constexpr std::uint32_t kTcpSynOrRst = 0x06;
inline constexpr std::uint32_t kTcpSynAck = 0x12;

// What is metered, sampling applied, and where its two ends are.
struct Metered {
  IOmbrelStatsEngine* engine;
  std::uint64_t bytes;  // modulo 2^32
  std::uint64_t packets;
  bool source_home = false;
  bool destination_home = false;
  const Direction* direction = nullptr;

  void Classify(bool source_is_home, bool destination_is_home) noexcept {
    source_home = source_is_home;
    destination_home = destination_is_home;
    direction = &DirectionOf(source_is_home, destination_is_home);
  }
};

// The ports of a flow. An sFlow agent may send numbers of 32 bits: they are compared as they are,
// and their key shows the lower half.
struct Ports {
  std::uint32_t source;
  std::uint32_t destination;

  [[nodiscard]] std::uint32_t Smaller() const noexcept {
    return source < destination ? source : destination;
  }
};

// One of the fixed keys that are named with their hash.
[[gnu::always_inline]] inline void UpdateWay(const Metered& m, const AggregateKey& way) {
  m.engine->UpdateCounterHashed2(COUNTERID_AGGREGATES, way.hash, way.text, totals::kBytes, m.bytes,
                                 totals::kPackets, m.packets);
}

// All traffic, and the protocol's.
[[gnu::always_inline]] inline void UpdateTotals(const Metered& m, std::uint8_t protocol) {
  UpdateWay(m, kTotalBandwidth);
  char key[kProtocolKeyLength + 1];
  MakeProtocolKey(protocol, key);
  m.engine->UpdateCounterKeyLen(COUNTERID_IPPROTOCOL, kProtocolKeyLength, key, totals::kBytes,
                                m.bytes);
}

// The two hosts by their keys, and the flow's way.
[[gnu::always_inline]] inline void UpdateIpv4Hosts(const Metered& m, const char* source_key,
                                                   const char* destination_key) {
  const std::uint64_t values[] = {m.bytes, m.bytes, m.bytes, m.packets};
  m.engine->UpdateCounterMulti(COUNTERID_HOSTS, kIpv4KeyLength, source_key, 4,
                               hosts::kSourceMeters[m.source_home], values);
  m.engine->UpdateCounterMulti(COUNTERID_HOSTS, kIpv4KeyLength, destination_key, 4,
                               hosts::kDestinationMeters[m.destination_home], values);
  UpdateWay(m, m.direction->aggregate);
}

[[gnu::always_inline]] inline void UpdateIpv6Hosts(const Metered& m, const char* source_key,
                                                   const char* destination_key) {
  m.engine->UpdateCounter2(COUNTERID_HOSTS6, kIpv6KeyLength, source_key, hosts::kBytes, m.bytes,
                           hosts::kBytesAsSource, m.bytes);
  m.engine->UpdateCounter2(COUNTERID_HOSTS6, kIpv6KeyLength, destination_key, hosts::kBytes,
                           m.bytes, hosts::kBytesAsDestination, m.bytes);
}

inline void UpdateIcmpv6(const Metered& m) {
  m.engine->UpdateCounterKeyLen(COUNTERID_APPS, 6, "icmpv6", apps::kBytes, m.bytes);
}

// The application of a protocol without ports, where it has one.
[[gnu::always_inline]] inline void UpdateProtocolApplication(const Metered& m,
                                                             std::uint32_t protocol) {
  const auto update = [&](std::string_view name) {
    m.engine->UpdateCounterKeyLen(COUNTERID_APPS, static_cast<int>(name.size()), name.data(),
                                  apps::kBytes, m.bytes);
  };
  switch (protocol) {
    case kIcmp:
      return update("icmp");
    case kGre:
      return update("gre");
    case kEsp:
      return update("ipsec-esp");
    default:
      return;
  }
}

// One meter of a port's application.
[[gnu::always_inline]] inline void UpdatePort(IOmbrelStatsEngine* engine, std::uint32_t port,
                                              int meter, std::uint64_t value) {
  char key[kPortKeyLength + 1];
  MakePortKey(static_cast<std::uint16_t>(port), key);
  engine->UpdateCounterKeyLen(COUNTERID_APPS, kPortKeyLength, key, meter, value);
}

// The same for the ports that stand for services: the well-known one, the source looked at first,
// or both.
[[gnu::always_inline]] inline void UpdateServicePorts(IOmbrelStatsEngine* engine,
                                                      const Ports& ports, int meter,
                                                      std::uint64_t value) {
  const bool source_is_service = ports.source < kFirstClientPort;
  const bool destination_is_service = ports.destination < kFirstClientPort;
  if (source_is_service || !destination_is_service) UpdatePort(engine, ports.source, meter, value);
  if (!source_is_service) UpdatePort(engine, ports.destination, meter, value);
}

// The smaller port's application, with the flow's way.
[[gnu::always_inline]] inline void UpdateSmallerPort(const Metered& m, const Ports& ports) {
  char key[kPortKeyLength + 1];
  MakePortKey(static_cast<std::uint16_t>(ports.Smaller()), key);
  m.engine->UpdateCounter2(COUNTERID_APPS, kPortKeyLength, key, apps::kBytes, m.bytes,
                           m.direction->apps_meter, m.bytes);
}

// An interface by its key, with the meter of its side.
[[gnu::always_inline]] inline void UpdateInterface(const Metered& m, std::string_view key,
                                                   int side_meter) {
  m.engine->UpdateCounter3(COUNTERID_FLOWINTF, static_cast<int>(key.size()), key.data(),
                           interfaces::kBytes, m.bytes, side_meter, m.bytes, interfaces::kFlows, 1);
}

// A TCP connection of each host.
[[gnu::always_inline]] inline void UpdateHostConnections(IOmbrelStatsEngine* engine,
                                                         const char* source_key,
                                                         const char* destination_key) {
  for (const char* const key : {source_key, destination_key}) {
    engine->UpdateCounterKeyLen(COUNTERID_HOSTS, kIpv4KeyLength, key, hosts::kTcpConnections, 1);
  }
}

}  // namespace flow
