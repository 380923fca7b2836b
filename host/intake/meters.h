// SPDX-License-Identifier: Apache-2.0
// One instance of every handler and meter, with what they hold of memory.
//
// Meters forget nothing that they learn, and strangers make up what there is to learn. So a lane
// that finds its meters too large makes fresh ones, teaches them what is worth it and lets the old
// ones go.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/base/heap_account.h"
#include "host/base/timestamp.h"
#include "host/border/component_catalog.h"
#include "host/border/site.h"
#include "host/intake/handover.h"

namespace flow::host {

struct LaneParts;

class Meters {
 public:
  // A component at work. The site outlives it.
  struct Component {
    std::string name;
    IID protocol{};
    std::unique_ptr<Site> site;
    InterfacePtr<IOmbrelPlugin> plugin;
    InterfacePtr<IOmbrelProtHandler> handler;
    InterfacePtr<IOmbrelSimpleCounter> meter;
    InterfacePtr<IOmbrelChannelListener> listener;
  };

  // Makes the components of lane number and attaches them. HostError when one refuses. Fresh ones
  // say nothing while they start, unless it is an error.
  Meters(const LaneParts& parts, int number, bool is_fresh);
  ~Meters();
  Meters(const Meters&) = delete;
  Meters& operator=(const Meters&) = delete;

  [[nodiscard]] std::span<Component> components() { return components_; }

  // Whatever the plug-in does is within a scope of its account.
  HeapAccount& account() { return account_; }
  // Bytes that they have learnt to hold since they were attached.
  [[nodiscard]] std::size_t Learnt() const {
    return account_.Held() - std::min(account_.Held(), held_at_start_);
  }

  // Whether fresh ones would read the policies that are in force; reading another one may end the
  // process. Reloads is how often policies were read again.
  [[nodiscard]] bool HavePoliciesInForce() const;
  [[nodiscard]] std::uint64_t Reloads() const;

  // Learn is for fresh ones, LearnFrom for any.
  void Learn(const Handover& handover, Timestamp now);
  void LearnFrom(const Handover::Lesson& lesson, Timestamp now);

 private:
  void Attach(const LaneParts& parts, const ComponentDescription& description, int number,
              bool is_fresh);
  void Take(const Handover::Lesson& lesson, Timestamp now);

  HeapAccount account_;
  std::vector<Component> components_;
  std::size_t held_at_start_ = 0;
};

}  // namespace flow::host
