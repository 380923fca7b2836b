// SPDX-License-Identifier: Apache-2.0
// The plug-in itself: loaded, asked for its components, and let go.
#pragma once

#include <dlfcn.h>

#include <string>

#include "flowhandlers/kit/interface_ptr.h"
#include "flowhandlers/plugin_interfaces.h"

namespace flow::kit {

// One loaded plug-in. All components that came from it must be gone before it is. A process has one
// at a time: the entry points work on a table of components that the library has once.
class Plugin {
 public:
  Plugin() = default;
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;
  ~Plugin() { Close(); }

  // Open loads the library and has it make its table of components. False, and why in error(), when
  // it cannot.
  bool Open(const std::string& path) {
    Close();
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) return Fail(dlerror());
    int (*initialise)() = nullptr;
    int (*get_package)(IOmbrelComponentPackage**) = nullptr;
    if (!Find("SqPIInit", &initialise) || !Find("SqPIGetPackage", &get_package) ||
        !Find("SqPIFini", &finish_)) {
      return Fail(path + " is no plug-in");
    }
    initialise();
    initialised_ = true;
    if (get_package(&package_) != 0) return Fail(path + " offers no table of components");
    return true;
  }

  [[nodiscard]] const std::string& error() const { return error_; }

  // Create makes a component; null when the plug-in has no such class.
  [[nodiscard]] InterfacePtr<IArboUnknown> Create(const CLSID& clsid) const {
    IArboClassFactory* handed = nullptr;
    package_->GetClassFactory(clsid, &handed);
    const InterfacePtr<IArboClassFactory> factory(handed);
    IArboUnknown* object = nullptr;
    if (factory) factory->NewInstance(&object);
    return InterfacePtr<IArboUnknown>(object);
  }

  void Close() {
    if (initialised_) finish_();  // it ends the package, which is therefore never released
    if (handle_ != nullptr) dlclose(handle_);
    initialised_ = false;
    handle_ = nullptr;
    package_ = nullptr;
  }

 private:
  template <class Function>
  bool Find(const char* name, Function** function) {
    *function = reinterpret_cast<Function*>(dlsym(handle_, name));
    return *function != nullptr;
  }

  bool Fail(std::string why) {
    error_ = std::move(why);
    Close();
    return false;
  }

  void* handle_ = nullptr;
  void (*finish_)() = nullptr;
  bool initialised_ = false;
  IOmbrelComponentPackage* package_ = nullptr;
  std::string error_;
};

}  // namespace flow::kit
