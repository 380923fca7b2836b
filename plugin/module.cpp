// SPDX-License-Identifier: Apache-2.0
#include "plugin/module.h"

#include <algorithm>

Status COmbrelModule::GetComponentCount(unsigned int* count) {
  if (count == nullptr) return kStatusNullOutput;
  *count = static_cast<unsigned int>(table_.size());
  return kStatusOk;
}

Status COmbrelModule::GetComponentCLSID(unsigned int index, IID* clsid) {
  if (index >= table_.size()) return kStatusIndexRange;
  if (clsid == nullptr) return kStatusNullOutput;
  *clsid = table_[index].clsid;
  return kStatusOk;
}

Status COmbrelModule::GetClassFactory(const IID& clsid, IArboClassFactory** factory) {
  if (factory == nullptr) return kStatusNullOutput;
  *factory = nullptr;
  const auto entry = Find(clsid);
  if (entry != table_.end()) {
    entry->factory->AddRef();
    *factory = entry->factory;
  }
  return kStatusOk;
}

Status COmbrelModule::RegisterModule(const IID& clsid, IArboUnknown* object) {
  void* factory = nullptr;
  if (object->QueryInterface(IID_IArboClassFactory, &factory) != kStatusOk) {
    return kStatusNoInterface;
  }
  table_.push_back({clsid, static_cast<IArboClassFactory*>(factory)});
  return kStatusOk;
}

Status COmbrelModule::UnregisterModule(const IID& clsid) {
  const auto entry = Find(clsid);
  if (entry != table_.end()) {
    entry->factory->Release();
    table_.erase(entry);
  }
  return kStatusOk;
}

Status COmbrelModule::UnregisterAll() {
  for (const COMPTABLE_T& entry : table_) delete entry.factory;
  return kStatusOk;
}

std::vector<COmbrelModule::COMPTABLE_T>::iterator COmbrelModule::Find(const IID& clsid) {
  return std::find_if(table_.begin(), table_.end(),
                      [&](const COMPTABLE_T& entry) { return entry.clsid == clsid; });
}
