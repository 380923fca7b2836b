// SPDX-License-Identifier: Apache-2.0
#include "host/border/call_trace.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/guid_text.h"
#include "host/base/printable.h"

namespace flow::host {

std::string Quoted(const char* text) {
  return text == nullptr ? "null" : Quoted(std::string_view(text));
}

std::string Quoted(std::string_view text) { return fmt::format("\"{}\"", Printable(text)); }

CallTrace::CallTrace(const std::string& path)
    : file_(path == "-" ? stdout : nullptr), owned_(path != "-") {
  const int file = owned_ ? OpenOutput(path) : -1;
  if (file >= 0) file_ = fdopen(file, "w");
  if (file_ == nullptr) {
    throw HostError(fmt::format("trace file {} cannot be written: {}", path, FileTrouble(errno)));
  }
}

CallTrace::~CallTrace() {
  if (owned_) std::fclose(file_);
}

void CallTrace::Learn(const GUID& guid, std::string name) { names_[guid] = std::move(name); }

std::string CallTrace::Name(const GUID& guid) const {
  const auto known = names_.find(guid);
  return known != names_.end() ? known->second : fmt::format("{{{}}}", GuidText(guid));
}

void CallTrace::Enter(std::string_view text) {
  Line('>', text);
  ++depth_;
}

void CallTrace::Leave(Status status) {
  --depth_;
  Line('<', status <= 1 ? fmt::format("{}", status) : fmt::format("0x{:08X}", status));
}

void CallTrace::Line(char mark, std::string_view text) {
  fmt::print(file_, "{:{}}{} {}\n", "", depth_ * 2, mark, text);
}

}  // namespace flow::host
