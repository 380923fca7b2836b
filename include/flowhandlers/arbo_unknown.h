// SPDX-License-Identifier: Apache-2.0
// The root of the component object model: what every interface, the library's and the host's,
// begins with, and how a component is created.
//
// Everything here is called on one thread at a time; reference counts are not atomic.
#pragma once

#include <cstdint>

#include "flowhandlers/identifiers.h"
#include "flowhandlers/status.h"

struct IArboUnknown {
  virtual ~IArboUnknown() = default;

  // AddRef adds a reference and returns the new count.
  virtual std::uint32_t AddRef() = 0;

  // Release gives a reference back and returns the remaining count. At 0 the object is gone.
  virtual std::uint32_t Release() = 0;

  // QueryInterface asks the object for another of its interfaces. On success *out is that
  // interface's pointer and carries a new reference, which the caller gives back with Release; any
  // interface of an object leads to every other. kStatusNoInterface leaves *out null.
  virtual Status QueryInterface(const IID& iid, void** out) = 0;
};

struct IArboClassFactory : IArboUnknown {
  static constexpr const IID* kId = &IID_IArboClassFactory;

  // NewInstance makes a new, independent object of the factory's class and stores it in *out with a
  // reference count of 1, which belongs to the caller.
  virtual Status NewInstance(IArboUnknown** out) = 0;
};
