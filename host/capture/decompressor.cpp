// SPDX-License-Identifier: Apache-2.0
#include "host/capture/decompressor.h"

#include <fmt/format.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "host/base/error.h"

namespace flow::host {
namespace {

// The compressed bytes, piece by piece.
class Source {
 public:
  explicit Source(std::FILE* file) : file_(file), piece_(kPiece) {}

  // Next gives the next piece, empty at the end.
  std::span<std::uint8_t> Next() {
    const std::size_t size = std::fread(piece_.data(), 1, piece_.size(), file_);
    if (size == 0 && std::ferror(file_) != 0) throw HostError(std::strerror(errno));
    return {piece_.data(), size};
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 16;
  std::FILE* file_;
  std::vector<std::uint8_t> piece_;
};

// A file holds one member or several, one behind the other (RFC 1952).
class Gzip final : public Decompressor {
 public:
  explicit Gzip(std::FILE* file) : source_(file) {
    constexpr int kGzipAlone = 16;  // added to the window bits
    if (inflateInit2(&stream_, MAX_WBITS + kGzipAlone) != Z_OK) throw HostError("gzip: no memory");
  }
  ~Gzip() override { inflateEnd(&stream_); }
  Gzip(const Gzip&) = delete;
  Gzip& operator=(const Gzip&) = delete;

  std::size_t Read(std::span<std::uint8_t> out) override {
    const auto room = static_cast<uInt>(std::min(out.size(), std::size_t{1} << 30));
    stream_.next_out = out.data();
    stream_.avail_out = room;
    while (stream_.avail_out == room) {
      if (stream_.avail_in == 0 && !Refill()) break;
      if (is_between_ && inflateReset(&stream_) != Z_OK) throw HostError("gzip: no memory");
      const int result = inflate(&stream_, Z_NO_FLUSH);
      is_between_ = result == Z_STREAM_END;
      if (result == Z_OK || is_between_ || stream_.avail_out < room) continue;
      throw HostError(fmt::format("gzip: {}", stream_.msg == nullptr ? "no memory" : stream_.msg));
    }
    return room - stream_.avail_out;
  }

 private:
  // False at the end of the file.
  bool Refill() {
    const auto piece = source_.Next();
    stream_.next_in = piece.data();
    stream_.avail_in = static_cast<uInt>(piece.size());
    if (piece.empty() && !is_between_) throw HostError("gzip: it ends in the middle");
    return !piece.empty();
  }

  Source source_;
  z_stream stream_{};
  bool is_between_ = false;  // members
};

// A file holds one frame or several (RFC 8878).
class Zstd final : public Decompressor {
 public:
  explicit Zstd(std::FILE* file) : source_(file), context_(ZSTD_createDCtx()) {
    if (context_ == nullptr) throw HostError("zstd: no memory");
    // What the zstd program takes without being asked for more: 128 MiB.
    constexpr int kLargestWindowLog = 27;
    ZSTD_DCtx_setParameter(context_.get(), ZSTD_d_windowLogMax, kLargestWindowLog);
  }

  std::size_t Read(std::span<std::uint8_t> out) override {
    ZSTD_outBuffer to{out.data(), out.size(), 0};
    while (to.pos == 0) {
      // With all input taken there may still be output to come, unless a frame has just ended.
      if (from_.pos == from_.size && (is_between_ || !has_more_) && !Refill()) break;
      const std::size_t result = ZSTD_decompressStream(context_.get(), &to, &from_);
      if (ZSTD_isError(result) != 0) {
        throw HostError(fmt::format("zstd: {}", ZSTD_getErrorName(result)));
      }
      is_between_ = result == 0;
      has_more_ = to.pos == to.size;
    }
    return to.pos;
  }

 private:
  struct Free {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
  };

  // False at the end of the file.
  bool Refill() {
    const auto piece = source_.Next();
    from_ = {piece.data(), piece.size(), 0};
    if (piece.empty() && !is_between_) throw HostError("zstd: it ends in the middle");
    return !piece.empty();
  }

  Source source_;
  std::unique_ptr<ZSTD_DCtx, Free> context_;
  ZSTD_inBuffer from_{};
  bool is_between_ = false;  // frames
  bool has_more_ = false;    // output than there was room for
};

}  // namespace

std::unique_ptr<Decompressor> DecompressorOf(std::FILE* file) {
  constexpr std::uint8_t kGzip[] = {0x1F, 0x8B};
  constexpr std::uint8_t kZstd[] = {0x28, 0xB5, 0x2F, 0xFD};
  std::uint8_t start[sizeof(kZstd)];
  const std::size_t size = std::fread(start, 1, sizeof(start), file);
  // The C library takes back what it has read, as a pipe cannot be rewound.
  for (std::size_t i = size; i-- > 0;) std::ungetc(start[i], file);
  const auto begins_with = [&](std::span<const std::uint8_t> magic) {
    return std::ranges::equal(magic, std::span(start).first(std::min(size, magic.size())));
  };
  if (begins_with(kGzip)) return std::make_unique<Gzip>(file);
  if (begins_with(kZstd)) return std::make_unique<Zstd>(file);
  return nullptr;
}

}  // namespace flow::host
