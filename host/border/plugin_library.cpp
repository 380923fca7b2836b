// SPDX-License-Identifier: Apache-2.0
#include "host/border/plugin_library.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>

#include "host/base/error.h"
#include "host/border/build_note.h"

namespace flow::host {
namespace {

constexpr char kLibraryName[] = "libflowhandlers.so.1";

std::string DlError() {
  const char* const text = dlerror();
  return text == nullptr ? "no reason given" : text;
}

void* Open(const std::string& path) { return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

// The places are tried in order; one whose file is there decides, even when it does not load.
std::string ChoosePlace() {
  for (const std::string& place : PluginPlaces()) {
    std::error_code ignored;
    if (place.find('/') == std::string::npos || std::filesystem::exists(place, ignored)) {
      return place;
    }
  }
  return kLibraryName;
}

}  // namespace

std::vector<std::string> PluginPlaces() {
  std::vector<std::string> places;
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    const auto folder = executable.parent_path();
    places.push_back((folder / kLibraryName).string());
    places.push_back((folder.parent_path() / "lib" / kLibraryName).string());
    places.push_back((folder.parent_path() / FLOW_INSTALL_LIBDIR / kLibraryName).string());
  }
  places.emplace_back(kLibraryName);
  return places;
}

void PluginLibrary::Unloader::operator()(void* handle) const { dlclose(handle); }

PluginLibrary::PluginLibrary(const std::string& path) : path_(path.empty() ? ChoosePlace() : path) {
  std::error_code ignored;
  const bool names_file = path_.find('/') != std::string::npos;
  if (!path.empty() && !std::filesystem::exists(path_, ignored)) {
    throw HostError(fmt::format("plug-in {} does not exist", path_));
  }
  // Without a slash dlopen would search the system's directories for what the user named as a file.
  handle_.reset(Open(!path.empty() && !names_file ? "./" + path_ : path_));
  if (handle_ == nullptr) {
    throw HostError(fmt::format("plug-in {} cannot be loaded: {}{}", path_, DlError(),
                                path.empty() ? " (name it with --plugin PATH)" : ""));
  }
  auto* const initialise = reinterpret_cast<int (*)()>(EntryPoint("SqPIInit"));
  auto* const get_package =
      reinterpret_cast<int (*)(IOmbrelComponentPackage**)>(EntryPoint("SqPIGetPackage"));
  auto* const finish = reinterpret_cast<void (*)()>(EntryPoint("SqPIFini"));

  initialise();  // its result carries no status
  finish_.reset(finish);
  if (get_package(&package_) != 0 || package_ == nullptr) {
    throw HostError(fmt::format("plug-in {} offers no table of components", path_));
  }
}

PluginLibrary::~PluginLibrary() = default;

std::string PluginLibrary::Build() const { return BuildOf(handle_.get()); }

void* PluginLibrary::EntryPoint(const char* name) const {
  void* const symbol = dlsym(handle_.get(), name);
  if (symbol == nullptr) {
    throw HostError(
        fmt::format("plug-in {} has no entry point {}; is it a plug-in at all?", path_, name));
  }
  return symbol;
}

}  // namespace flow::host
