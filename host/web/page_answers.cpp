// SPDX-License-Identifier: Apache-2.0
#include "host/web/page_answers.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>

#include "host/web/http_gzip.h"
#include "host/web/page_files.h"

namespace flow::host {
namespace {

struct FileType {
  std::string_view ending;
  const char* type;
};
constexpr FileType kTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
};

std::string TypeOf(std::string_view name) {
  const auto found = std::ranges::find_if(
      kTypes, [&](const FileType& type) { return name.ends_with(type.ending); });
  return found == std::end(kTypes) ? "application/octet-stream" : found->type;
}

std::string TagOf(std::string_view bytes) {
  const auto sum =
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
  return fmt::format("\"{:08x}-{:x}\"", sum, bytes.size());
}

}  // namespace

PageAnswers::PageAnswers() {
  constexpr int kSmall = 9;
  for (const PageFile& file : PageFiles()) {
    const std::string path = file.name == "index.html" ? "/" : fmt::format("/{}", file.name);
    files_.push_back(
        {path, TypeOf(file.name), TagOf(file.bytes), file.bytes, Gzip(file.bytes, kSmall)});
  }
}

HttpAnswer PageAnswers::Answer(const HttpRequest& request) const {
  const auto file = std::ranges::find(files_, request.path, &File::path);
  if (file == files_.end()) return ErrorAnswer(404, "there is nothing at this address");
  HttpAnswer answer{.type = file->type};
  answer.headers = {{"ETag", file->tag}, {"Cache-Control", "no-cache"}};
  if (request.if_none_match.find(file->tag) != std::string::npos) {
    answer.status = 304;
  } else {
    answer.is_gzip = request.takes_gzip;
    answer.body = request.takes_gzip ? file->small : std::string(file->bytes);
  }
  return answer;
}

}  // namespace flow::host
