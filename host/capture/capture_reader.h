// SPDX-License-Identifier: Apache-2.0
// Packets out of a capture file: pcap and pcapng, plain or compressed with gzip or zstd.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "host/base/timestamp.h"

struct pcap;

namespace flow::host {

struct CapturedPacket {
  Timestamp time = 0;
  std::span<const std::uint8_t> bytes;  // what was captured, from the link layer on
  std::uint32_t wire_length = 0;        // what was on the wire; larger when the capture cut it
};

class CaptureReader {
 public:
  // Opens a capture; "-" is standard input. HostError when it cannot be read, is no capture, or its
  // link layer is not understood.
  explicit CaptureReader(const std::string& path);
  ~CaptureReader();

  // LinkType is the capture's link layer as libpcap numbers it (DLT_...).
  [[nodiscard]] int LinkType() const { return link_type_; }

  // Next gives the next packet, valid until the next call; false at the end. HostError when the
  // rest of the file is damaged.
  bool Next(CapturedPacket* packet);

  // Position is how much of the file, as it is stored, was read, 0 to 1; 0 where that is not known.
  [[nodiscard]] double Position() const;

 private:
  struct Closer {
    void operator()(pcap* capture) const;
  };

  struct Inflated;

  [[nodiscard]] std::string Trouble(const char* reason) const;

  std::string path_;
  std::FILE* file_ = nullptr;
  std::unique_ptr<Inflated> inflated_;  // null for a plain file; outlives the capture
  std::unique_ptr<pcap, Closer> capture_;
  int link_type_ = 0;
  double size_ = 0;
};

}  // namespace flow::host
