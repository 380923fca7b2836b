// SPDX-License-Identifier: Apache-2.0
// Sampling rates of exporters (one packet in so many), configured in the policy or learnt from
// options data.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "util/xmlParser.h"

namespace flow {

class SamplingRates {
 public:
  // Load replaces all rates by those of the policy's "SamplingRates" element, which may be empty.
  // The first rate of an exporter stays. What is wrong goes to the site's log.
  void Load(const XMLNode& element, IOmbrelContainer* site);

  // Learn sets the rate of an exporter, named by its address as stored on the wire; LearnInDomain
  // that of one of its observation domains alone.
  void Learn(std::uint32_t exporter, std::int32_t rate);
  void LearnInDomain(std::uint32_t exporter, std::uint32_t domain, std::int32_t rate) {
    domain_rates_[{exporter, domain}] = rate;
  }

  // RateOf is the exporter's rate, else the one configured for 0.0.0.0, else 0. RateInDomain is the
  // domain's own rate where it has told one.
  [[nodiscard]] std::int32_t RateOf(std::uint32_t exporter) const noexcept;
  [[nodiscard, gnu::noinline]] std::int32_t RateInDomain(std::uint32_t exporter,
                                                         std::uint32_t domain) const noexcept;

  // SetSamplingRateKeyAttribute sets one rate as a property of its exporter's key.
  static void SetSamplingRateKeyAttribute(IOmbrelStatsEngine* engine, std::uint32_t exporter,
                                          std::int32_t rate);

  // SetSamplingRateKeyAttributes sets each rate as a property of its exporter's key.
  void SetSamplingRateKeyAttributes(IOmbrelStatsEngine* engine) const;

  // DebugDumpSamplingRates writes them to standard output.
  void DebugDumpSamplingRates() const;

 private:
  std::map<std::uint32_t, std::int32_t> SamplingRateTable;  // by address as stored on the wire

  std::map<std::pair<std::uint32_t, std::uint32_t>, std::int32_t> domain_rates_;

  // The last answer: one exporter sends many records in a row.
  mutable std::uint32_t last_exporter_ = 0;
  mutable std::int32_t last_rate_ = 0;
  mutable bool has_last_ = false;
};

}  // namespace flow
