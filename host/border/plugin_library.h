// SPDX-License-Identifier: Apache-2.0
// Loading the plug-in library and letting it go.
#pragma once

#include <string>
#include <vector>

#include "flowhandlers/plugin_interfaces.h"
#include "host/border/interface_ptr.h"

namespace flow::host {

// PluginPlaces gives the places where the plug-in may be, best first: beside the executable, in the
// lib directory next to the executable's, and wherever the system's loader looks (no directory).
std::vector<std::string> PluginPlaces();

// A loaded and initialised plug-in. All objects that came from it must be gone before it is.
class PluginLibrary {
 public:
  // Loads the library at path, or the first of PluginPlaces() that is there when path is empty.
  // HostError says which step failed.
  explicit PluginLibrary(const std::string& path);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  [[nodiscard]] IOmbrelComponentPackage& package() const { return *package_; }
  [[nodiscard]] const std::string& path() const { return path_; }
  // Version and revision; empty for a plug-in that does not tell.
  [[nodiscard]] std::string Build() const;

 private:
  struct Unloader {
    void operator()(void* handle) const;
  };
  using Handle = std::unique_ptr<void, Unloader>;
  struct Finisher {
    void operator()(void (*finish)()) const { finish(); }
  };

  [[nodiscard]] void* EntryPoint(const char* name) const;

  // In the order in which they come to be; destroyed the other way round.
  std::string path_;
  Handle handle_;
  std::unique_ptr<void(), Finisher> finish_;
  // Never given back: the module holds no reference of its own, so that ours keeps it alive until
  // the final entry point destroys it.
  IOmbrelComponentPackage* package_ = nullptr;
};

}  // namespace flow::host
