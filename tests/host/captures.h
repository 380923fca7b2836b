// SPDX-License-Identifier: Apache-2.0
// Captures built by hand: packets layer by layer, and the file around them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace flow::host::test {

using Bytes = std::vector<std::uint8_t>;

// Hex digits and blanks: "45 00".
Bytes FromHex(const std::string& hex);
Bytes operator+(Bytes a, const Bytes& b);
Bytes Text(const std::string& text);

// An IPv4 packet of UDP from 10.0.0.1:50000 to 10.0.0.2:port.
struct Udp {
  Bytes payload;
  std::uint16_t port = 7777;
  std::uint32_t source = 0x0A000001;
  std::uint16_t source_port = 50000;
  int udp_length_off = 0;    // added to the length in the UDP header
  std::string options = {};  // IPv4 options, hex, a multiple of 4 bytes

  [[nodiscard]] Bytes Packet() const;
};

// An IPv6 packet of UDP from [2001:db8::1]:50000 to [2001:db8::2]:port.
struct Udp6 {
  Bytes payload;
  std::uint16_t port = 7777;
  std::uint8_t first_header = 17;  // what the fixed header says comes behind it
  std::string extensions = {};     // hex
  int length_off = 0;              // added to the payload length in the fixed header

  [[nodiscard]] Bytes Packet() const;
};

// Packet as seen on Ethernet; its first byte tells the version.
Bytes Ethernet(const Bytes& packet);

// A folder that is gone when it goes out of scope.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  [[nodiscard]] std::filesystem::path operator/(const std::string& name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

// A classic capture file; the packets are a second apart, the first at 1,700,000,000.
struct Capture {
  int link_type = 1;  // Ethernet
  std::vector<Bytes> packets;
  std::uint32_t snap_length = 65535;  // packets are cut to it

  void Write(const std::filesystem::path& path) const;
};

void WriteFile(const std::filesystem::path& path, const std::string& text);
std::string ReadFile(const std::filesystem::path& path);

}  // namespace flow::host::test
