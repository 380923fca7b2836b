// SPDX-License-Identifier: Apache-2.0
// The texts are host keys, so they have to be those that the C library writes.

#include "util/address_text.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace flow {
namespace {

// What one of the writers writes into a heap block of as many bytes as it may change.
template <class Write>
std::string Written(std::size_t changes, Write write) {
  std::vector<char> text(changes);
  return std::string(text.data(), write(text.data()));
}

void ExpectIpv6AsInetNtop(const std::uint8_t* address) {
  char expected[INET6_ADDRSTRLEN];
  ASSERT_NE(inet_ntop(AF_INET6, address, expected, sizeof(expected)), nullptr);
  ASSERT_EQ(Written(kIpv6TextSize, [=](char* out) { return PutIpv6Text(address, out); }), expected);
}

// Groups that are mostly zero, all ones or small, so that runs of every kind and addresses with an
// IPv4 part come up.
TEST(Ipv6Text, OfRandomAddressesIsThatOfInetNtop) {
  std::mt19937 random(6);
  for (int i = 0; i < 100'000; ++i) {
    std::uint8_t address[16];
    for (int group = 0; group < 8; ++group) {
      const std::uint64_t choices[] = {0, 0, 0, 0xFFFF, random() & 0xF, random() & 0xFFFF};
      const std::uint64_t value = choices[random() % 6];
      address[2 * group] = static_cast<std::uint8_t>(value >> 8);
      address[2 * group + 1] = static_cast<std::uint8_t>(value);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectIpv6AsInetNtop(address));
  }
}

TEST(DottedIpv4, IsThatOfInetNtop) {
  std::mt19937 random(4);
  for (std::uint32_t i = 0; i < 20'000; ++i) {
    const std::uint32_t octet = i & 0xFF;  // every octet at every place first
    const std::uint32_t host_order =
        i < 1024 ? octet << (8 * (i >> 8)) : static_cast<std::uint32_t>(random());
    const in_addr address = {htonl(host_order)};
    char expected[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, expected, sizeof(expected));
    ASSERT_EQ(Written(kIpv4TextSize, [=](char* out) { return PutDottedIpv4(host_order, out); }),
              expected);
  }
}

TEST(Decimal, IsRightAroundEveryPowerOfTen) {
  for (std::uint64_t power = 1; power < 10'000'000'000'000'000'000U; power *= 10) {
    for (const std::uint64_t value : {power - 1, power, power + 1, 7 * power, ~power}) {
      const std::string expected = std::to_string(value);
      EXPECT_EQ(Written(expected.size(), [=](char* out) { return PutDecimal(value, out); }),
                expected);
      const auto number = static_cast<std::int64_t>(value);
      const std::string expected_signed = std::to_string(number);
      EXPECT_EQ(
          Written(expected_signed.size(), [=](char* out) { return PutSignedDecimal(number, out); }),
          expected_signed);
      const auto narrow = static_cast<std::uint32_t>(value);
      EXPECT_EQ(Written(12, [=](char* out) { return PutShortDecimal(narrow, out); }),
                std::to_string(narrow));
      const auto octet = static_cast<std::uint8_t>(value);
      EXPECT_EQ(Written(4, [=](char* out) { return PutOctet(octet, out); }), std::to_string(octet));
    }
  }
}

}  // namespace
}  // namespace flow
