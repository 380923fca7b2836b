// SPDX-License-Identifier: Apache-2.0
// Template sets: what is learnt of them, how they travel between the host's meters, and the file
// that shows what has been learnt.
#pragma once

#include <cstdint>
#include <span>

#include "config/netflow_policy.h"
#include "flowhandlers/host_interfaces.h"
#include "netflow/export_source.h"
#include "netflow/host_links.h"
#include "netflow/set_error.h"
#include "netflow/template_store.h"

namespace flow {

class TemplateSets {
 public:
  using Bytes = std::span<const std::uint8_t>;

  // All outlive it. `meter` is the address by which messages tell meters apart.
  TemplateSets(const NetflowPolicy& policy, const HostLinks& host, TemplateStore* store,
               const void* meter)
      : policy_(policy), host_(host), store_(*store), meter_(meter) {}

  // These learn a set, given from its header to its end. `broadcast` says that it came from the
  // wire and is passed on to the other meters.
  SetError v9_ProcessTemplateFlowset(const ExportSource& source, Bytes set, TemplateRules rules,
                                     bool broadcast);
  void v9_ProcessTemplateOptions(const ExportSource& source, Bytes set, bool broadcast);
  void v10_ProcessTemplateOptions(const ExportSource& source, Bytes set, bool broadcast);

  // OnChannelMessage learns what another meter has passed on. Messages of other channels mean
  // nothing.
  SetError OnChannelMessage(const IID& channel, Bytes message);

  // DumpTemplates writes the file; DumpWhenDue does so as often as the policy wants. `now` is the
  // engine's time in seconds.
  void DumpTemplates() const;
  void DumpWhenDue(std::uint64_t now);

 private:
  void PostTemplateSet(const ExportSource& source, Bytes set) const;
  void LogTemplateMessage(const char* what, std::uint16_t id, const char* from,
                          std::uint32_t exporter, const char* end) const;

  const NetflowPolicy& policy_;
  const HostLinks& host_;
  TemplateStore& store_;
  const void* meter_;
  std::uint64_t last_dump_ = 0;
};

}  // namespace flow
