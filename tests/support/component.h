// SPDX-License-Identifier: Apache-2.0
// Handles for components under test, whether their classes are linked in or come from a loaded
// library.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "flowhandlers/plugin_interfaces.h"
#include "plugin/arbo_object.h"

namespace flow::test {

// The identifier of an interface.
template <class Interface>
inline constexpr const IID* kIidOf = nullptr;
template <>
inline constexpr const IID* kIidOf<IArboUnknown> = &IID_IArboUnknown;
template <>
inline constexpr const IID* kIidOf<IArboClassFactory> = &IID_IArboClassFactory;
template <>
inline constexpr const IID* kIidOf<IOmbrelPlugin> = &IID_IOmbrelPlugin;
template <>
inline constexpr const IID* kIidOf<IOmbrelSimpleCounter> = &IID_IOmbrelSimpleCounter;
template <>
inline constexpr const IID* kIidOf<IOmbrelChannelListener> = &IID_IOmbrelChannelListener;
template <>
inline constexpr const IID* kIidOf<IOmbrelProtHandler> = &IID_IOmbrelProtHandler;
template <>
inline constexpr const IID* kIidOf<IOmbrelAccessPointClient> = &IID_IOmbrelAccessPointClient;
template <>
inline constexpr const IID* kIidOf<IOmbrelCounterGroupHost> = &IID_IOmbrelCounterGroupHost;
template <>
inline constexpr const IID* kIidOf<IOmbrelComponentPackage> = &IID_IOmbrelComponentPackage;

// Component holds one reference to a component and gives it back.
class Component {
 public:
  // Takes over the caller's reference.
  explicit Component(IArboUnknown* owned) : unknown_(owned) {}
  Component(Component&& other) noexcept : unknown_(std::exchange(other.unknown_, nullptr)) {}
  Component& operator=(Component&& other) noexcept {
    std::swap(unknown_, other.unknown_);
    return *this;
  }
  ~Component() {
    if (unknown_ != nullptr) unknown_->Release();
  }

  IArboUnknown* Unknown() const { return unknown_; }

  // Find gives one of the component's interfaces, borrowed; null when it is not offered.
  template <class Interface>
  Interface* Find() const {
    void* out = nullptr;
    if (unknown_->QueryInterface(*kIidOf<Interface>, &out) != kStatusOk) return nullptr;
    unknown_->Release();  // this handle's reference keeps the object
    return static_cast<Interface*>(out);
  }

  // As is Find for an interface that the test relies on.
  template <class Interface>
  Interface* As() const {
    Interface* const found = Find<Interface>();
    if (found == nullptr) {
      std::fputs("the component lacks an interface that the test uses\n", stderr);
      std::abort();
    }
    return found;
  }

 private:
  IArboUnknown* unknown_;
};

// ComponentOf is a new object of a component class that is linked into the test; -> reaches the
// class itself.
template <class Class>
class ComponentOf : public Component {
 public:
  ComponentOf() : ComponentOf(Create()) {}

  Class* operator->() const { return object_; }
  Class& operator*() const { return *object_; }

 private:
  explicit ComponentOf(CArboObject<Class>* object) : Component(Query(object)), object_(object) {}

  static CArboObject<Class>* Create() {
    CArboObject<Class>* object = nullptr;
    CArboObject<Class>::CreateInstance(&object);
    return object;
  }
  static IArboUnknown* Query(CArboObject<Class>* object) {
    void* unknown = nullptr;
    object->QueryInterface(IID_IArboUnknown, &unknown);
    return static_cast<IArboUnknown*>(unknown);
  }

  CArboObject<Class>* object_;
};

}  // namespace flow::test
