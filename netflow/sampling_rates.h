// Sampling rates of exporters (one packet in so many), configured in the policy or learnt from
// options data.
#pragma once

#include <cstdint>
#include <map>

#include "flowhandlers/host_interfaces.h"
#include "util/xmlParser.h"

namespace flow {

class SamplingRates {
 public:
  // Load replaces all rates by those of the policy's "SamplingRates" element, which may be empty.
  // The first rate of an exporter stays. What is wrong goes to the site's log.
  void Load(const XMLNode& element, IOmbrelContainer* site);

  // Learn sets the rate of an exporter, named by its address as stored on the wire.
  void Learn(std::uint32_t exporter, std::int32_t rate);

  // RateOf is the exporter's rate, else the one configured for 0.0.0.0, else 0.
  [[nodiscard]] std::int32_t RateOf(std::uint32_t exporter) const noexcept;

  // SetSamplingRateKeyAttributes sets each rate as a property of its exporter's key.
  void SetSamplingRateKeyAttributes(IOmbrelStatsEngine* engine) const;

  // DebugDumpSamplingRates writes them to standard output.
  void DebugDumpSamplingRates() const;

 private:
  std::map<std::uint32_t, std::int32_t> SamplingRateTable;  // by address as stored on the wire

  // The last answer: one exporter sends many records in a row.
  mutable std::uint32_t last_exporter_ = 0;
  mutable std::int32_t last_rate_ = 0;
  mutable bool has_last_ = false;
};

}  // namespace flow
