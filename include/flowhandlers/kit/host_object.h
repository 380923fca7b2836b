// SPDX-License-Identifier: Apache-2.0
// What all objects do the same way that a host hands to the plug-in: they live as long as the host
// wants, so references are counted for the answers' sake alone.
#pragma once

#include <cstdint>

#include "flowhandlers/arbo_unknown.h"
#include "flowhandlers/identifiers.h"

namespace flow::kit {

// HostObject<Interface, Iid> is the base of a host object that offers one interface.
template <class Interface, const IID& Iid>
class HostObject : public Interface {
 public:
  std::uint32_t AddRef() override { return ++references_; }
  std::uint32_t Release() override { return --references_; }
  Status QueryInterface(const IID& iid, void** out) override {
    if (out == nullptr) return kStatusNullOutput;
    *out = nullptr;
    if (!(iid == Iid) && !(iid == IID_IArboUnknown)) return kStatusNoInterface;
    AddRef();
    *out = static_cast<Interface*>(this);
    return kStatusOk;
  }

 private:
  std::uint32_t references_ = 1;  // the host's own
};

}  // namespace flow::kit
