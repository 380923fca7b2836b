// SPDX-License-Identifier: Apache-2.0
// CArboObject<T>: reference count, interface query and creation for a component class T.
//
// T derives from CArboObjectRootEx and its interfaces, leaves AddRef, Release, QueryInterface and
// NewInstance open, and lists its interfaces in GetInterfaceMap(). Only CArboObject<T> is ever
// made. Components derive from CArboComponent (plugin/component.h), which does all of this.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flowhandlers/arbo_unknown.h"
#include "flowhandlers/identifiers.h"

// One interface of a component class: its identifier and how far its sub-object lies from the start
// of the object. A null identifier ends a map.
struct InterfaceMapEntry {
  const IID* iid;
  std::ptrdiff_t distance;
};

// InterfaceDistance is the distance of T's sub-object Interface from the start of a T.
template <class T, class Interface>
std::ptrdiff_t InterfaceDistance() {
  alignas(T) static char storage[sizeof(T)];
  char* const part =
      reinterpret_cast<char*>(static_cast<Interface*>(reinterpret_cast<T*>(storage)));
  return part - storage;
}

// InterfaceMapOf is the map of a class T that offers these interfaces, the primary one first.
template <class T, class... Interfaces>
const InterfaceMapEntry* InterfaceMapOf() {
  static const InterfaceMapEntry map[] = {{Interfaces::kId, InterfaceDistance<T, Interfaces>()}...,
                                          {nullptr, 0}};
  return map;
}

// The host uses an object from one thread at a time, so counts are plain numbers.
struct CArboSingleThreadModel {
  static std::uint32_t Increment(std::uint32_t& count) noexcept { return ++count; }
  static std::uint32_t Decrement(std::uint32_t& count) noexcept { return --count; }
};

class CArboObjectRootBase {
 protected:
  std::uint32_t ref_count_ = 0;
};

template <class ThreadModel>
class CArboObjectRootEx : public CArboObjectRootBase {
 protected:
  std::uint32_t InternalAddRef() noexcept { return ThreadModel::Increment(ref_count_); }
  std::uint32_t InternalRelease() noexcept { return ThreadModel::Decrement(ref_count_); }
};

template <class T>
class CArboObject : public T {
 public:
  CArboObject() = default;
  CArboObject(const CArboObject&) = delete;
  CArboObject& operator=(const CArboObject&) = delete;

  // A member that takes and gives back a reference while it is destroyed must not reach 0 again.
  ~CArboObject() override { this->ref_count_ = static_cast<std::uint32_t>(-500000); }

  // CreateInstance makes an object with a reference count of 0, all of its storage zero before its
  // constructor runs.
  static Status CreateInstance(CArboObject** out) {
    if (out == nullptr) return kStatusNullOutput;
    *out = nullptr;
    *out = new CArboObject();  // the parentheses ask for the zero storage
    return kStatusOk;
  }

  std::uint32_t AddRef() override { return this->InternalAddRef(); }

  std::uint32_t Release() override {
    const std::uint32_t left = this->InternalRelease();
    if (left == 0) delete this;
    return left;
  }

  Status QueryInterface(const IID& iid, void** out) override {
    if (out == nullptr) return kStatusNullOutput;
    *out = nullptr;
    const InterfaceMapEntry* const map = T::GetInterfaceMap();
    if (iid == IID_IArboUnknown) return Hand(map->distance, out);
    for (const InterfaceMapEntry* entry = map; entry->iid != nullptr; ++entry) {
      if (*entry->iid == iid) return Hand(entry->distance, out);
    }
    return kStatusNoInterface;
  }

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Winconsistent-missing-override"
#endif
  // NewInstance is an operation of IArboClassFactory where T has that interface; where it has not,
  // there is nothing to override.
  virtual Status NewInstance(IArboUnknown** out) {  // NOLINT(modernize-use-override)
    if (out == nullptr) return kStatusNullOutput;
    *out = nullptr;
    CArboObject* object = nullptr;
    const Status status = CreateInstance(&object);
    if (status != kStatusOk) return status;
    return object->QueryInterface(IID_IArboUnknown, reinterpret_cast<void**>(out));
  }
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

 private:
  // The first interface of the map is the object's primary one.
  Status Hand(std::ptrdiff_t distance, void** out) {
    auto* const interface =
        reinterpret_cast<IArboUnknown*>(reinterpret_cast<char*>(static_cast<T*>(this)) + distance);
    interface->AddRef();
    *out = interface;
    return kStatusOk;
  }
};
