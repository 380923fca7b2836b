// SPDX-License-Identifier: Apache-2.0
// A component class for tests of the object model. It counts how many of its objects live, and
// remembers how the last one ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "plugin/component.h"

namespace flow::test {

class Probe : public CArboComponent<Probe, IOmbrelSimpleCounter> {
 public:
  static constexpr PluginIdentity kIdentity = {"a name", "a description"};
  static inline int living = 0;
  static inline int destroyed = 0;
  static inline std::int32_t count_at_end = 0;  // reference count seen by the destructor
  static inline bool out_of_memory = false;

  static void Reset() {
    living = destroyed = 0;
    count_at_end = 0;
    out_of_memory = false;
  }

  Probe() { ++living; }
  ~Probe() override {
    count_at_end = static_cast<std::int32_t>(ref_count_);
    --living;
    ++destroyed;
  }

  // Storage full of rubbish, so that an object which relies on zeroed storage shows.
  static void* operator new(std::size_t size) {
    if (out_of_memory) throw std::bad_alloc();
    void* const storage = ::operator new(size);
    std::memset(storage, 0xA5, size);
    return storage;
  }
  static void operator delete(void* storage) { ::operator delete(storage); }

  Status AttachSite(IOmbrelContainer* /*site*/) override { return kStatusOk; }
  Status DetachSite() override { return kStatusOk; }
  Status GetAttachmentProtID(IID* /*protocol*/) override { return kStatusNotSupported; }
  Status Count(IOmbrelStatsEngine* /*engine*/, IOmbrelProtData* /*data*/) override {
    return kStatusNotSupported;
  }
  Status IsFlowCounter(bool* /*is_flow*/) override { return kStatusNotSupported; }

  std::uint64_t never_set[4];  // no initialiser: zero storage is all it gets
  int set_by_constructor = 7;
};

using ProbeObject = CArboObject<Probe>;

// NewProbe gives a new object as its unknown interface, reference count 1.
inline IArboUnknown* NewProbe() {
  ProbeObject* object = nullptr;
  ProbeObject::CreateInstance(&object);
  void* unknown = nullptr;
  object->QueryInterface(IID_IArboUnknown, &unknown);
  return static_cast<IArboUnknown*>(unknown);
}

}  // namespace flow::test
