#include "host/capture/capture_reader.h"

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/base/error.h"
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

}  // namespace

void CaptureReader::Closer::operator()(pcap* capture) const { pcap_close(capture); }

CaptureReader::CaptureReader(const std::string& path) : path_(path) {
  errno = 0;
  std::FILE* const file = OpenFile(path);
  char reason[PCAP_ERRBUF_SIZE] = "";
  capture_.reset(pcap_fopen_offline(file, reason));
  if (capture_ == nullptr) {
    if (file != stdin) std::fclose(file);
    throw HostError(fmt::format("{}: not a readable capture: {}", path, reason));
  }
  link_type_ = pcap_datalink(capture_.get());
  if (!IsKnownLinkType(link_type_)) {
    throw HostError(
        fmt::format("{}: link layer {} is not supported", path, LinkTypeName(link_type_)));
  }
  struct stat status {};
  if (fstat(fileno(file), &status) == 0) size_ = static_cast<double>(status.st_size);
}

CaptureReader::~CaptureReader() = default;

bool CaptureReader::Next(CapturedPacket* packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  const int result = pcap_next_ex(capture_.get(), &header, &data);
  if (result == PCAP_ERROR_BREAK) return false;
  if (result != 1) {
    throw HostError(
        fmt::format("{}: damaged, read up to there: {}", path_, pcap_geterr(capture_.get())));
  }
  packet->time = header->ts.tv_sec * kMicrosPerSecond + header->ts.tv_usec;
  packet->bytes = {data, header->caplen};
  packet->wire_length = header->len;
  return true;
}

double CaptureReader::Position() const {
  const long position = std::ftell(pcap_file(capture_.get()));
  return size_ > 0 && position > 0 ? static_cast<double>(position) / size_ : 0;
}

}  // namespace flow::host
