// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_gzip.h"

#include <zlib.h>

#include "host/base/error.h"

namespace flow::host {

std::string Gzip(std::string_view text, int level) {
  constexpr int kGzip = 16;  // rather than zlib's own form
  constexpr int kMemory = 8;
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, MAX_WBITS + kGzip, kMemory, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw HostError("no memory to make an answer small");
  }
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

}  // namespace flow::host
