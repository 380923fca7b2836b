// SPDX-License-Identifier: Apache-2.0
#include "capi/policy_copy.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "util/xmlParser.h"

namespace flow::capi {
namespace {

bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

PolicyCopy::~PolicyCopy() {
  if (file_ >= 0) close(file_);
}

bool PolicyCopy::Take(const std::string& path, std::string* fault) {
  std::ifstream in(path, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(in), {});
  if (in.bad() || !in.is_open()) {
    *fault = path + " cannot be read";
    return false;
  }
  file_ = memfd_create("policy", MFD_CLOEXEC);
  if (file_ < 0 || !WriteAll(file_, text)) {
    *fault = path + " cannot be copied: " + std::strerror(errno);
    return false;
  }
  std::string wrong;
  XMLNode::tryFile(Path().c_str(), "OmbrelPluginConfiguration", &wrong);
  if (wrong.empty()) return true;
  const std::size_t name = wrong.find(Path());  // of the copy
  *fault = name == std::string::npos ? wrong : wrong.replace(name, Path().size(), path);
  return false;
}

}  // namespace flow::capi
