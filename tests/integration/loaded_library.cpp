// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/loaded_library.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace foreign {
namespace {

[[noreturn]] void Stop(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
  std::abort();
}

template <class Function>
Function EntryPoint(const Library& library, const char* name) {
  void* const symbol = library.Symbol(name);
  if (symbol == nullptr) Stop(std::string("the library lacks ") + name);
  return reinterpret_cast<Function>(symbol);
}

constexpr Status kNoInterface = 0x80000005;

}  // namespace

Guid GuidOf(Class component) { return ParseGuid(kClasses[component].guid); }

Guid GuidOf(Interface interface) { return ParseGuid(kInterfaces[interface].guid); }

Object* Query(Object* object, Interface interface) {
  const Guid iid = GuidOf(interface);
  Object* found = object;  // rubbish that a failed query has to clear
  const Status status = Call(object, at::QueryInterface, &iid, &found);
  const bool consistent = found == nullptr ? status == kNoInterface : status == 0;
  if (!consistent) Stop(std::string("query for ") + kInterfaces[interface].name);
  return found;
}

std::uint32_t Release(Object* object) { return Call<std::uint32_t>(object, at::Release); }

Library::Library() : handle_(dlopen(FLOW_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) Stop(dlerror());
  if (EntryPoint<int (*)()>(*this, "SqPIInit")() != 0) Stop("SqPIInit failed");
  const int status = EntryPoint<int (*)(Object**)>(*this, "SqPIGetPackage")(&package_);
  if (status != 0 || package_ == nullptr) Stop("SqPIGetPackage failed");
}

Library::~Library() { Close(); }

void* Library::Symbol(const char* name) const { return dlsym(handle_, name); }

Object* Library::New(Class component) {
  const Guid clsid = GuidOf(component);
  Object* factory = nullptr;
  Call(package_, at::GetClassFactory, &clsid, &factory);
  if (factory == nullptr) Stop(std::string("no factory of ") + kClasses[component].name);
  Object* object = nullptr;
  const Status status = Call(factory, at::NewInstance, &object);
  Release(factory);
  if (status != 0 || object == nullptr) Stop(std::string("no ") + kClasses[component].name);
  return object;
}

Object* Library::NewAs(Class component, Interface interface) {
  Object* const object = New(component);
  Object* const wanted = Query(object, interface);
  if (wanted == nullptr) Stop(std::string("no ") + kInterfaces[interface].name);
  Release(object);
  return wanted;
}

void Library::Close() {
  if (handle_ == nullptr) return;
  EntryPoint<void (*)()>(*this, "SqPIFini")();
  if (dlclose(handle_) != 0) Stop(dlerror());
  handle_ = nullptr;
}

bool Library::Loaded() {
  if (void* const again = dlopen(FLOW_LIBRARY, RTLD_LAZY | RTLD_NOLOAD)) {
    dlclose(again);
    return true;
  }
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("libflowhandlers") != std::string::npos) return true;
  }
  return false;
}

}  // namespace foreign
