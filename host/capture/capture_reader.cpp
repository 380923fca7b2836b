// SPDX-License-Identifier: Apache-2.0
#include "host/capture/capture_reader.h"

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "host/base/error.h"
#include "host/capture/decompressor.h"
#include "host/capture/link_layer.h"

namespace flow::host {
namespace {

std::string LinkTypeName(int link_type) {
  const char* const name = pcap_datalink_val_to_name(link_type);
  return name == nullptr ? fmt::format("number {}", link_type) : name;
}

std::FILE* OpenFile(const std::string& path) {
  struct stat status {};
  if (path == "-") return stdin;
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) errno = EISDIR;
  std::FILE* const file = errno == EISDIR ? nullptr : std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw HostError(fmt::format("{}: {}", path, std::strerror(errno)));
  return file;
}

// Blocks of pcapng have 64 bits of time: what is past these years is damage, and cannot be counted
// in microseconds.
Timestamp TimeOf(const timeval& time) {
  constexpr std::int64_t kMostSeconds = 253'402'300'799;  // the end of the year 9999
  const std::int64_t seconds = std::clamp<std::int64_t>(time.tv_sec, 0, kMostSeconds);
  return seconds * kMicrosPerSecond + std::clamp<std::int64_t>(time.tv_usec, 0, 999'999);
}

}  // namespace

// What a compressed file decompresses to, as a file for libpcap.
struct CaptureReader::Inflated {
  std::FILE* compressed;
  std::unique_ptr<Decompressor> decompressor;
  std::string trouble;  // empty as long as there is none

  ~Inflated() {
    if (compressed != stdin) std::fclose(compressed);
  }

  static ssize_t Read(void* cookie, char* out, std::size_t size) {
    auto* const self = static_cast<Inflated*>(cookie);
    try {
      const auto bytes = std::span(reinterpret_cast<std::uint8_t*>(out), size);
      return static_cast<ssize_t>(self->decompressor->Read(bytes));
    } catch (const std::exception& error) {
      self->trouble = error.what();
      errno = EIO;
      return -1;
    }
  }

  std::FILE* Open() {
    constexpr std::size_t kBuffer = std::size_t{1} << 16;
    std::FILE* const file = fopencookie(this, "rb", {Read, nullptr, nullptr, nullptr});
    if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kBuffer);
    return file;
  }
};

void CaptureReader::Closer::operator()(pcap* capture) const { pcap_close(capture); }

CaptureReader::CaptureReader(const std::string& path) : path_(path) {
  errno = 0;
  file_ = OpenFile(path);
  struct stat status {};
  if (fstat(fileno(file_), &status) == 0) size_ = static_cast<double>(status.st_size);
  std::FILE* plain = file_;
  if (auto decompressor = DecompressorOf(file_)) {
    inflated_.reset(new Inflated{file_, std::move(decompressor), ""});
    plain = inflated_->Open();
    if (plain == nullptr) throw HostError(fmt::format("{}: {}", path, std::strerror(errno)));
  }
  char reason[PCAP_ERRBUF_SIZE] = "";
  capture_.reset(pcap_fopen_offline(plain, reason));
  if (capture_ == nullptr) {
    if (plain != stdin) std::fclose(plain);
    throw HostError(fmt::format("{}: not a readable capture: {}", path, Trouble(reason)));
  }
  link_type_ = pcap_datalink(capture_.get());
  if (!IsKnownLinkType(link_type_)) {
    throw HostError(
        fmt::format("{}: link layer {} is not supported", path, LinkTypeName(link_type_)));
  }
}

CaptureReader::~CaptureReader() = default;

// What libpcap says of a compressed file is at second hand.
std::string CaptureReader::Trouble(const char* reason) const {
  return inflated_ && !inflated_->trouble.empty() ? inflated_->trouble : reason;
}

bool CaptureReader::Next(CapturedPacket* packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  const int result = pcap_next_ex(capture_.get(), &header, &data);
  if (result == PCAP_ERROR_BREAK) return false;
  if (result != 1) {
    throw HostError(fmt::format("{}: damaged, read up to there: {}", path_,
                                Trouble(pcap_geterr(capture_.get()))));
  }
  packet->time = TimeOf(header->ts);
  packet->bytes = {data, header->caplen};
  packet->wire_length = header->len;
  return true;
}

double CaptureReader::Position() const {
  const long position = std::ftell(file_);
  return size_ > 0 && position > 0 ? static_cast<double>(position) / size_ : 0;
}

}  // namespace flow::host
