// SPDX-License-Identifier: Apache-2.0
// What all objects of the recording host share: they are lent to the library, which may neither
// count references on them, nor ask for other interfaces, nor destroy them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "flowhandlers/arbo_unknown.h"
#include "tests/support/host_trace.h"

namespace flow::test {

template <class Interface>
class HostObject : public Interface {
 public:
  HostObject(HostTrace* trace, std::string name) : trace_(trace), name_(std::move(name)) {}
  HostObject(const HostObject&) = delete;
  HostObject& operator=(const HostObject&) = delete;

  std::uint32_t AddRef() override { return Borrowed("AddRef"); }
  std::uint32_t Release() override { return Borrowed("Release"); }
  Status QueryInterface(const IID& /*iid*/, void** out) override {
    Borrowed("QueryInterface");
    *out = nullptr;
    return kStatusNoInterface;
  }

 protected:
  HostTrace& trace() const { return *trace_; }

 private:
  std::uint32_t Borrowed(const char* operation) {
    trace_->Fault(std::string(operation) + " on " + name_ + ", which is borrowed");
    return 1;
  }

  HostTrace* trace_;
  std::string name_;
};

}  // namespace flow::test
