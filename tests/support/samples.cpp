// SPDX-License-Identifier: Apache-2.0
#include "tests/support/samples.h"

#include <algorithm>
#include <filesystem>
#include <span>

#include "tests/support/policy_file.h"
#include "util/bytes.h"

namespace flow::test {

std::vector<RecordedDatagram> RecordedDatagrams() {
  std::vector<std::filesystem::path> captures;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(FLOW_PROJECT_DIR) / "samples")) {
    if (entry.path().extension() == ".pcap") captures.push_back(entry.path());
  }
  std::ranges::sort(captures);
  std::vector<RecordedDatagram> datagrams;
  for (const auto& capture : captures) {
    // Big-endian, IPv4 without options and UDP, as our scripts record.
    constexpr std::size_t kFileHeader = 24;
    constexpr std::size_t kPacketHeader = 16;
    constexpr std::size_t kHeaders = 20 + 8;
    const std::string content = ReadFile(capture.string());
    const Bytes file(content.begin(), content.end());
    int number = 0;
    for (std::size_t at = kFileHeader; at + kPacketHeader <= file.size();) {
      const std::size_t size = LoadBe32(&file[at + 8]);
      at += kPacketHeader;
      const auto packet = std::span(file).subspan(at, size).subspan(kHeaders);
      at += size;
      datagrams.push_back({capture.stem().string() + " " + std::to_string(++number),
                           {packet.begin(), packet.end()}});
    }
  }
  return datagrams;
}

}  // namespace flow::test
