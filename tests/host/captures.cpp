// SPDX-License-Identifier: Apache-2.0
#include "tests/host/captures.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace flow::host::test {
namespace {

void Put(Bytes* out, std::uint64_t value, int bytes) {
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
    out->push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

}  // namespace

Bytes FromHex(const std::string& hex) {
  Bytes bytes;
  std::string digits;
  std::ranges::copy_if(hex, std::back_inserter(digits), [](char c) { return c != ' '; });
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

Bytes Udp::Packet() const {
  const Bytes option_bytes = FromHex(options);
  const std::size_t header = 20 + option_bytes.size();
  Bytes packet;
  Put(&packet, 0x40 + header / 4, 1);
  Put(&packet, 0, 1);
  Put(&packet, header + 8 + payload.size(), 2);
  Put(&packet, 0, 4);  // identification, no fragment
  Put(&packet, 0x4011, 2);
  Put(&packet, 0, 2);
  Put(&packet, source, 4);
  Put(&packet, 0x0A000002, 4);
  packet = packet + option_bytes;
  Put(&packet, source_port, 2);
  Put(&packet, port, 2);
  Put(&packet, 8 + payload.size() + static_cast<std::size_t>(udp_length_off), 2);
  Put(&packet, 0, 2);
  return packet + payload;
}

Bytes Udp6::Packet() const {
  const Bytes behind = FromHex(extensions);
  const std::size_t udp_length = 8 + payload.size();
  Bytes packet = FromHex("60000000");
  Put(&packet, behind.size() + udp_length + static_cast<std::size_t>(length_off), 2);
  Put(&packet, first_header, 1);
  packet = packet +
           FromHex("40 20010DB8000000000000000000000001 20010DB8000000000000000000000002") + behind;
  Put(&packet, 50000, 2);
  Put(&packet, port, 2);
  Put(&packet, udp_length, 2);
  Put(&packet, 0, 2);
  return packet + payload;
}

Bytes Ethernet(const Bytes& packet) {
  const bool ipv6 = !packet.empty() && packet[0] >> 4 == 6;
  return FromHex(ipv6 ? "020000000001 020000000002 86DD" : "020000000001 020000000002 0800") +
         packet;
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "flowhost-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void Capture::Write(const std::filesystem::path& path) const {
  Bytes file;
  Put(&file, 0xA1B2C3D4, 4);
  Put(&file, 0x00020004, 4);
  Put(&file, 0, 8);
  Put(&file, snap_length, 4);
  Put(&file, static_cast<std::uint64_t>(link_type), 4);
  std::uint64_t time = 1'700'000'000;
  for (const Bytes& packet : packets) {
    const std::size_t kept = std::min<std::size_t>(packet.size(), snap_length);
    Put(&file, time++, 4);
    Put(&file, 0, 4);
    Put(&file, kept, 4);
    Put(&file, packet.size(), 4);
    file.insert(file.end(), packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(kept));
  }
  WriteFile(path, {file.begin(), file.end()});
}

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace flow::host::test
