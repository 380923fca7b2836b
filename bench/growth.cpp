// SPDX-License-Identifier: Apache-2.0
#include "bench/growth.h"

#include <cstdio>
#include <cstdlib>

#include "bench/engines.h"
#include "bench/traffic.h"
#include "util/bytes.h"

namespace flow::bench {
namespace {

constexpr std::size_t kSourceAddress = 12;    // in the IPv4 header
constexpr std::size_t kSetId = 20;            // behind the v9 header
constexpr std::size_t kFirstTemplateId = 24;  // behind the header of the first set
constexpr std::uint32_t kFirstExporter = 0xC6120001;
constexpr std::uint16_t kFirstTemplate = 256;

void Store(std::uint32_t value, std::size_t size, std::uint8_t* to) {
  for (std::size_t i = 0; i < size; ++i)
    to[i] = static_cast<std::uint8_t>(value >> 8 * (size - 1 - i));
}

std::string Repeat(int count, std::string (*item)(Random*)) {
  Random random(3);
  std::string list;
  for (int i = 0; i < count; ++i) list += (i == 0 ? "" : ",") + item(&random);
  return list;
}

// Addresses that the traffic does not have.
std::string UnseenAddress(Random* random) {
  const std::uint32_t n = random->Below(1 << 24);
  return "203." + std::to_string(n >> 16) + "." + std::to_string(n >> 8 & 255) + "." +
         std::to_string(n & 255);
}

std::string HostFilter() {
  return "<FilterHostsExclude>" + Repeat(10'000, UnseenAddress) + "</FilterHostsExclude>";
}

std::string InterfaceFilter() {
  const auto item = [](Random* random) {
    return UnseenAddress(random) + "_" + std::to_string(random->Below(500));
  };
  return "<FilterInterfacesExclude>" + Repeat(10'000, item) + "</FilterInterfacesExclude>";
}

std::string HomeAsNumbers() {
  const auto item = [](Random* random) { return std::to_string(random->Next() >> 33); };
  return "<HomeASNumbers>" + Repeat(100'000, item) + "</HomeASNumbers>";
}

constexpr GrowthCase kCases[] = {
    {.name = "one_exporter_one_template"},
    {.name = "1000_templates", .templates = 1000, .limit = 1.5},
    {.name = "1000_exporters", .exporters = 1000, .limit = 1.5},
    {.name = "1000_exporters_1000_templates", .exporters = 1000, .templates = 1000, .limit = 1.5},
    {.name = "100000_exporters", .exporters = 100'000, .limit = 1.5},
    {.name = "100000_exporters_10_templates", .exporters = 100'000, .templates = 10, .limit = 1.5},
    {.name = "10000_filtered_hosts", .settings = HostFilter, .limit = 1.3},
    {.name = "10000_filtered_interfaces", .settings = InterfaceFilter, .limit = 1.3},
    {.name = "100000_home_as_numbers", .settings = HomeAsNumbers, .limit = 1.3},
    {.name = "1000_home_networks", .home_networks = 1000, .limit = 1.3},
};

}  // namespace

std::span<const GrowthCase> GrowthCases() { return kCases; }

GrowthMeter::GrowthMeter(const GrowthCase& growth)
    : case_(growth),
      workload_(MakeWorkload("v9_router")),
      host_(NewMeterOfLibrary(MeterKind::kNetflow),
            {.policy = growth.settings == nullptr ? std::string() : growth.settings(),
             .home_networks = growth.home_networks}) {
  for (std::uint32_t i = 0; i < case_.exporters; ++i) Learn(i);
  Check();
}

void GrowthMeter::Learn(std::uint32_t exporter) {
  NullEngine nobody;
  Datagram& datagram = workload_.templates.front();
  Store(kFirstExporter + exporter, 4, &datagram.headers[kSourceAddress]);
  for (std::uint32_t i = 0; i < case_.templates; ++i) {
    Store(kFirstTemplate + i, 2, &datagram.payload[kFirstTemplateId]);
    host_.Count(&nobody, datagram.headers, datagram.payload);
  }
}

std::uint64_t GrowthMeter::Count(IOmbrelStatsEngine* engine, std::uint32_t datagrams) {
  constexpr std::uint64_t kStride = 7919;  // prime to the numbers of exporters and templates
  for (std::uint32_t i = 0; i < datagrams; ++i, ++next_) {
    Datagram& datagram = workload_.datagrams[next_ % workload_.datagrams.size()];
    const auto exporter = static_cast<std::uint32_t>(next_ * kStride % case_.exporters);
    const auto id = static_cast<std::uint32_t>(next_ * kStride / 3 % case_.templates);
    Store(kFirstExporter + exporter, 4, &datagram.headers[kSourceAddress]);
    Store(kFirstTemplate + id, 2, &datagram.payload[kSetId]);
    host_.Count(engine, datagram.headers, datagram.payload);
  }
  return datagrams * workload_.items / workload_.datagrams.size();
}

// Checks that every record arrives: nothing is filtered, every template is known.
void GrowthMeter::Check() {
  TallyEngine engine;
  const std::uint64_t sent = Count(&engine, 1000);
  if (sent != 0 && engine.Records() == sent) return;
  std::fprintf(stderr, "%.*s: not every record has been metered\n",
               static_cast<int>(case_.name.size()), case_.name.data());
  std::exit(1);
}

}  // namespace flow::bench
