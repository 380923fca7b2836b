// SPDX-License-Identifier: Apache-2.0
// References to the plug-in's objects and texts, given back when they go out of scope.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "flowhandlers/arbo_unknown.h"

namespace flow::kit {

// InterfacePtr owns one reference to an object of the plug-in.
template <class Interface>
class InterfacePtr {
 public:
  InterfacePtr() = default;
  explicit InterfacePtr(Interface* owned) : object_(owned) {}
  InterfacePtr(InterfacePtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  InterfacePtr& operator=(InterfacePtr&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~InterfacePtr() {
    if (object_ != nullptr) object_->Release();
  }

  Interface* operator->() const { return object_; }
  Interface& operator*() const { return *object_; }
  [[nodiscard]] Interface* get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  Interface* object_ = nullptr;
};

// Query asks an object for another of its interfaces; null when it does not offer it.
template <class Interface>
InterfacePtr<Interface> Query(IArboUnknown& object, const IID& iid) {
  void* found = nullptr;
  if (object.QueryInterface(iid, &found) != kStatusOk) return {};
  return InterfacePtr<Interface>(static_cast<Interface*>(found));
}

// TakeText copies a new[] text that an operation handed out, and frees it.
inline std::string TakeText(char* text) {
  const std::unique_ptr<char[]> owned(text);
  return owned == nullptr ? std::string() : std::string(owned.get());
}

// GiveText copies a text into a new[] text, which the plug-in frees.
inline char* GiveText(std::string_view text) {
  char* const copy = new char[text.size() + 1];
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace flow::kit
