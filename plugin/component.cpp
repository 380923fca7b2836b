// SPDX-License-Identifier: Apache-2.0
#include "plugin/component.h"

#include <cstring>

namespace {

constexpr char kVendor[] = "Harrow Networks Ombrel Standard Plugin";
constexpr std::uint32_t kShortestClaim = 24;

}  // namespace

char* NewText(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  char* const copy = new char[size];
  std::memcpy(copy, text, size);
  return copy;
}

Status AnswerPluginID(const PluginIdentity& identity, char** name, char** description,
                      char** vendor, unsigned int* versionMajor, unsigned int* versionMinor) {
  if (name == nullptr || description == nullptr || vendor == nullptr || versionMajor == nullptr ||
      versionMinor == nullptr) {
    return kStatusNullOutput;
  }
  *name = NewText(identity.name);
  *description = NewText(identity.description);
  *vendor = NewText(kVendor);
  *versionMajor = 1;
  *versionMinor = 0;
  return kStatusOk;
}

Status ClaimDatagram(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                     IOmbrelParseContext* context, Status* buffer_status) {
  const std::uint8_t* bytes = nullptr;
  std::uint32_t length = 0;
  *buffer_status = data->GetBuffer(&bytes, &length);
  if (length < kShortestClaim) return kStatusTooShort;
  context->SetParsedLength(length);
  *disposition = kDispositionClaimed;
  return kStatusOk;
}
