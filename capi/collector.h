// SPDX-License-Identifier: Apache-2.0
// What a fh_collector is: meters of its own over the plug-in that all share.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "capi/batch.h"
#include "capi/policy_copy.h"
#include "flowhandlers/kit/meters.h"

namespace flow::capi {

// Keeps what the plug-in logs for the batch, and its error for who opened the collector.
class CollectorSite final : public kit::Site {
 public:
  CollectorSite(kit::SiteSettings settings, Batch& batch);

  Status Log(int level, const char* text) override;
  Status PreparePluginConfigFile(const IID& owner, const char* fileName, char** fullPath) override;

  [[nodiscard]] const std::string& fault() const { return fault_; }

 private:
  std::string policy_directory_;
  Batch& batch_;
  PolicyCopy netflow_policy_;
  PolicyCopy sflow_policy_;
  std::string fault_;
};

}  // namespace flow::capi

struct fh_collector {
  fh_collector(std::shared_ptr<flow::kit::Plugin> loaded, flow::kit::SiteSettings settings,
               const fh_callbacks& callbacks)
      : plugin(std::move(loaded)), batch(callbacks), site(std::move(settings), batch) {}

  // In the order in which they come to be; destroyed the other way round.
  std::shared_ptr<flow::kit::Plugin> plugin;
  flow::capi::Batch batch;
  flow::capi::CollectorSite site;
  flow::kit::Datagram datagram;
  flow::kit::Meters meters;
};

namespace flow::capi {

// Open throws Fault when it cannot, and what callbacks throw.
fh_collector* Open(const char* policy_directory, const fh_callbacks& callbacks,
                   const fh_options& options);
void Close(fh_collector* collector);

// Why a call cannot do what it should.
struct Fault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace flow::capi
