// SPDX-License-Identifier: Apache-2.0
// What protocol handlers do the same way: name their protocol and the UDP ports on which it
// arrives.
#pragma once

#include <span>

#include "plugin/component.h"

// What a handler tells the host, and its message when it has got its site.
struct HandledProtocol {
  IID id;
  const char* name;
  const char* attached;
};

// The base of a handler class T, which has a kIdentity, a kProtocol, AccessPoints() and
// GenerateParse.
template <class T>
class CArboProtocolHandler
    : public CArboSitedComponent<T, IOmbrelProtHandler, IOmbrelAccessPointClient> {
 public:
  // IOmbrelPlugin
  Status AttachSite(IOmbrelContainer* site) override {
    this->KeepSite(site);
    site->Log(kLogInformation, T::kProtocol.attached);
    return kStatusOk;
  }

  // IOmbrelProtHandler
  Status GetProtID(IID* protocol, char** name) override {
    *protocol = T::kProtocol.id;
    *name = NewText(T::kProtocol.name);
    return kStatusOk;
  }

  // IOmbrelAccessPointClient
  Status GetPrefAPHosts(unsigned short* count, ACCPT_T** table) override {
    const std::span<ACCPT_T> points = T::AccessPoints();
    *count = static_cast<unsigned short>(points.size());
    *table = points.data();
    return kStatusOk;
  }
  Status GetAPClientProtID(IID* protocol) override {
    *protocol = T::kProtocol.id;
    return kStatusOk;
  }
  Status SetupFreeAP(IOmbrelProtData*, bool*) override { return kStatusNotSupported; }
};
