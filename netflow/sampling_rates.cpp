// SPDX-License-Identifier: Apache-2.0
#include "netflow/sampling_rates.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/counter_keys.h"
#include "plugin/site_log.h"
#include "util/address_text.h"

namespace flow {

void SamplingRates::Load(const XMLNode& element, IOmbrelContainer* site) {
  SamplingRateTable.clear();
  domain_rates_.clear();
  has_last_ = false;
  int next = 0;
  for (XMLNode child = element.getChildNode("Rate", &next); !child.isEmpty();
       child = element.getChildNode("Rate", &next)) {
    const char* const router = child.getAttribute("router");
    const char* const rate_text = child.getAttribute("rate");
    in_addr address{};
    if (router == nullptr || inet_pton(AF_INET, router, &address) != 1) {
      Log(site, kLogError, "Invalid IP Address in SamplingRates>Rate");
      continue;
    }
    const auto rate =
        rate_text == nullptr ? 0 : static_cast<std::int32_t>(std::strtol(rate_text, nullptr, 10));
    if (rate == 0) {
      Log(site, kLogError, "Invalid Sampling Rate (not an integer) in SamplingRates>Rate");
      continue;
    }
    Log(site, kLogProgress,
        std::string("Loaded Custom Sample Rate for ") + router + " = " + std::to_string(rate));
    SamplingRateTable.emplace(address.s_addr, rate);
  }
}

void SamplingRates::Learn(std::uint32_t exporter, std::int32_t rate) {
  SamplingRateTable[exporter] = rate;
  has_last_ = false;
}

std::int32_t SamplingRates::RateOf(std::uint32_t exporter) const noexcept {
  if (has_last_ && last_exporter_ == exporter) return last_rate_;
  auto found = SamplingRateTable.find(exporter);
  if (found == SamplingRateTable.end()) found = SamplingRateTable.find(0);
  last_rate_ = found != SamplingRateTable.end() ? found->second : 0;
  last_exporter_ = exporter;
  has_last_ = true;
  return last_rate_;
}

void SamplingRates::SetSamplingRateKeyAttributes(IOmbrelStatsEngine* engine) const {
  for (const auto& [exporter, rate] : SamplingRateTable) {
    SetSamplingRateKeyAttribute(engine, exporter, rate);
  }
}

void SamplingRates::SetSamplingRateKeyAttribute(IOmbrelStatsEngine* engine, std::uint32_t exporter,
                                                std::int32_t rate) {
  const Ipv4Key key = MakeIpv4Key(ntohl(exporter));
  char value[24];
  *PutSignedDecimal(rate, value) = '\0';
  engine->SetKeyProperty(COUNTERID_FLOWGEN, key.text, "netflow.sampling_rate", value);
}

std::int32_t SamplingRates::RateInDomain(std::uint32_t exporter,
                                         std::uint32_t domain) const noexcept {
  const auto found = domain_rates_.find({exporter, domain});
  return found != domain_rates_.end() ? found->second : RateOf(exporter);
}

void SamplingRates::DebugDumpSamplingRates() const {
  for (const auto& [exporter, rate] : SamplingRateTable) {
    std::printf("---- Sampling Rates -----\n");
    std::printf(" Router  %u   SamplingRate   %d\n", exporter, rate);
  }
}

}  // namespace flow
