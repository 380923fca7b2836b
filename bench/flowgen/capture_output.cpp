// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <pcap/pcap.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "bench/flowgen/output.h"
#include "bench/flowgen/wire_writer.h"

namespace flow::gen {
namespace {

constexpr std::uint32_t kCollector = 0xC6336401;  // 198.51.100.1
constexpr std::size_t kEthernetHeader = 14;
constexpr std::size_t kIpHeader = 20;
constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kHeaders = kEthernetHeader + kIpHeader + kUdpHeader;

std::uint16_t IpChecksum(const std::uint8_t* header) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kIpHeader; i += 2)
    sum += std::uint32_t{header[i]} << 8 | header[i + 1];
  sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~(sum + (sum >> 16)));
}

class CaptureOutput : public Output {
 public:
  explicit CaptureOutput(const Options& options)
      : options_(options), pcap_(pcap_open_dead(DLT_EN10MB, 65535)) {
    file_ = std::fopen(options.write.c_str(), "wb");
    if (file_ == nullptr) Fail();
    std::setvbuf(file_, nullptr, _IOFBF, std::size_t{1} << 20);
    dumper_ = pcap_dump_fopen(pcap_, file_);
    if (dumper_ == nullptr) Fail();
  }
  ~CaptureOutput() override {
    if (dumper_ != nullptr) pcap_dump_close(dumper_);
    pcap_close(pcap_);
  }
  CaptureOutput(const CaptureOutput&) = delete;
  CaptureOutput& operator=(const CaptureOutput&) = delete;

  void Put(std::uint32_t exporter, std::span<const Datagram> datagrams) override {
    for (const Datagram& datagram : datagrams) Write(exporter, datagram);
    if (std::ferror(file_) != 0) Fail();
  }

  void Finish() override {
    if (pcap_dump_flush(dumper_) != 0) Fail();
  }

 private:
  void Write(std::uint32_t exporter, const Datagram& datagram) {
    WriteHeaders(exporter, datagram.size);
    std::copy_n(datagram.payload.data(), datagram.size, frame_.data() + kHeaders);
    pcap_pkthdr header{};
    header.ts.tv_sec = static_cast<time_t>(datagram.when.time_us / 1'000'000);
    header.ts.tv_usec = static_cast<suseconds_t>(datagram.when.time_us % 1'000'000);
    header.caplen = header.len = static_cast<bpf_u_int32>(kHeaders + datagram.size);
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, frame_.data());
  }

  void WriteHeaders(std::uint32_t exporter, std::size_t payload) {
    constexpr std::uint32_t kFirstPort = 20'000;
    constexpr std::uint32_t kSourcePorts = 40'000;
    const auto udp_length = static_cast<std::uint16_t>(kUdpHeader + payload);
    WireWriter wire(frame_.data());
    wire.U16(0x0200).U32(1).U16(0x0200).U32(2).U16(0x0800);
    std::uint8_t* const ip = wire.At();
    wire.U8(0x45).U8(0).U16(static_cast<std::uint16_t>(kIpHeader + udp_length)).U16(++ip_id_);
    wire.U16(0).U8(64).U8(kUdp).U16(0).U32(ExporterAddress(exporter)).U32(kCollector);
    WireWriter(ip + 10).U16(IpChecksum(ip));
    wire.U16(static_cast<std::uint16_t>(kFirstPort + exporter % kSourcePorts));
    wire.U16(options_.PortOf(options_.FormatOf(exporter))).U16(udp_length).U16(0);
  }

  [[noreturn]] void Fail() const {
    throw std::runtime_error(
        fmt::format("{} cannot be written: {}", options_.write, std::strerror(errno)));
  }

  Options options_;
  pcap_t* pcap_;
  std::FILE* file_ = nullptr;
  pcap_dumper_t* dumper_ = nullptr;
  std::array<std::uint8_t, kHeaders + kMaxDatagram> frame_{};
  std::uint16_t ip_id_ = 0;
};

}  // namespace

std::unique_ptr<Output> NewCaptureOutput(const Options& options) {
  return std::make_unique<CaptureOutput>(options);
}

}  // namespace flow::gen
