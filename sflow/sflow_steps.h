// SPDX-License-Identifier: Apache-2.0
// The steps of the sFlow decoder and the primitives that they read with.
//
// A step returns false when it gave the rest of the datagram up; its caller then does nothing but
// return false too. Reads advance sample->cursor; a read that does not fit in the datagram gives
// up with SFExit::kEndOfDatagram.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sflow/sf_sample.h"

[[nodiscard]] inline bool GiveUp(_SFSample* sample, SFExit reason) noexcept {
  sample->exit = reason;
  return false;
}

// GiveUpUnsupported is for content that is unknown and has no length by which to skip it.
[[nodiscard]] inline bool GiveUpUnsupported(_SFSample* sample) noexcept {
  sample->decodeOK = 0;
  return GiveUp(sample, SFExit::kUnsupported);
}

// The words of a block that was taken whole, read in order. The reader never asks for more words
// than it took.
class SFWords {
 public:
  explicit SFWords(const std::uint8_t* position) noexcept : position_(position) {}

  [[nodiscard]] const std::uint8_t* Position() const noexcept { return position_; }

  std::uint32_t Next() noexcept {
    const std::uint32_t word = LoadBe32(position_);
    position_ += 4;
    return word;
  }
  std::uint64_t getData64() noexcept {
    const std::uint64_t value = LoadBe64(position_);
    position_ += 8;
    return value;
  }
  void Skip(std::size_t words) noexcept { position_ += 4 * words; }

  // An address without a type word.
  void NextAddress(std::uint32_t type, SFAddress* out) noexcept {
    const std::size_t size = type == kSFAddressIPv4 ? 4 : 16;
    out->type = type;
    std::memcpy(out->bytes, position_, size);
    position_ += size;
  }
  // A MAC address, padded to two words.
  void NextMac(std::uint8_t* out) noexcept {
    std::memcpy(out, position_, 6);
    position_ += 8;
  }

 private:
  const std::uint8_t* position_;
};

// TakeWords takes a block of count words. count may come from the wire: the product cannot wrap.
[[nodiscard]] inline bool TakeWords(_SFSample* sample, std::uint32_t count,
                                    const std::uint8_t** out) noexcept {
  std::span<const std::uint8_t> bytes;
  if (!sample->cursor.Take(std::size_t{count} * 4, &bytes)) {
    return GiveUp(sample, SFExit::kEndOfDatagram);
  }
  *out = bytes.data();
  return true;
}

[[nodiscard]] inline bool GetWord(_SFSample* sample, std::uint32_t* out) noexcept {
  const std::uint8_t* word = nullptr;
  if (!TakeWords(sample, 1, &word)) return false;
  *out = LoadBe32(word);
  return true;
}

[[nodiscard]] inline bool SkipWords(_SFSample* sample, std::uint32_t count) noexcept {
  const std::uint8_t* ignored = nullptr;
  return TakeWords(sample, count, &ignored);
}

// Padded is the space that length bytes take in a datagram: whole words.
[[nodiscard]] constexpr std::uint64_t Padded(std::uint32_t length) noexcept {
  return (std::uint64_t{length} + 3) & ~std::uint64_t{3};
}

// TakeBytes takes length bytes and their padding.
[[nodiscard]] inline bool TakeBytes(_SFSample* sample, std::uint32_t length,
                                    const std::uint8_t** out) noexcept {
  std::span<const std::uint8_t> bytes;
  if (!sample->cursor.Take(Padded(length), &bytes)) {
    return GiveUp(sample, SFExit::kEndOfDatagram);
  }
  *out = bytes.data();
  return true;
}

// ReadSource reads the data source of a sample: two words in the expanded form, else one word of an
// 8-bit class and a 24-bit index.
inline void ReadSource(_SFSample* sample, SFWords* words, bool expanded) noexcept {
  const std::uint32_t first = words->Next();
  sample->sourceIdType = expanded ? first : first >> 24;
  sample->sourceIdIndex = expanded ? words->Next() : first & 0x00FFFFFF;
}

// skipBytes passes over length bytes and their padding.
[[nodiscard]] bool skipBytes(_SFSample* sample, std::uint32_t length);

// skipTLVRecord passes over a record by its announced length.
[[nodiscard]] bool skipTLVRecord(_SFSample* sample);

// getAddress reads a type word and the address behind it.
[[nodiscard]] bool getAddress(_SFSample* sample, SFAddress* out);

// getString reads a counted text, cut to size - 1 characters and terminated, and stores its length
// on the wire. SkipString passes over one.
[[nodiscard]] bool getString(_SFSample* sample, char* buffer, std::size_t size,
                             std::uint32_t* length);
[[nodiscard]] bool SkipString(_SFSample* sample);

// lengthCheck compares the bytes taken since start with an announced length, its padding added.
// A difference is reported on standard error and gives the datagram up.
[[nodiscard]] bool ReportLength(_SFSample* sample, const char* name, std::uint32_t length,
                                std::uint64_t found);
[[nodiscard]] inline bool lengthCheck(_SFSample* sample, const char* name,
                                      const std::uint8_t* start, std::uint32_t length) {
  const auto found = static_cast<std::uint64_t>(sample->cursor.Position() - start);
  return found == Padded(length) || ReportLength(sample, name, length, found);
}

// Samples. expanded is the version 5 form that gives interface numbers a word of their own.
[[nodiscard]] bool readFlowSample(_SFSample* sample, bool expanded);
[[nodiscard]] bool readFlowSample_v2v4(_SFSample* sample);
[[nodiscard]] bool readCountersSample(_SFSample* sample, bool expanded);
[[nodiscard]] bool readCountersSample_v2v4(_SFSample* sample);

// The packet of a flow sample.
[[nodiscard]] bool readFlowSample_header(_SFSample* sample);
[[nodiscard]] bool readFlowSample_ethernet(_SFSample* sample);
[[nodiscard]] bool readFlowSample_IPv4(_SFSample* sample);
[[nodiscard]] bool readFlowSample_IPv6(_SFSample* sample);

// What switches, routers and servers say about it.
[[nodiscard]] bool readExtendedSwitch(_SFSample* sample);
[[nodiscard]] bool readExtendedRouter(_SFSample* sample);
[[nodiscard]] bool readExtendedGateway(_SFSample* sample);
[[nodiscard]] bool readExtendedUser(_SFSample* sample);
[[nodiscard]] bool readExtendedUrl(_SFSample* sample);
[[nodiscard]] bool readExtendedMpls(_SFSample* sample);
[[nodiscard]] bool readExtendedNat(_SFSample* sample);
[[nodiscard]] bool readExtendedMplsTunnel(_SFSample* sample);
[[nodiscard]] bool readExtendedMplsVC(_SFSample* sample);
[[nodiscard]] bool readExtendedMplsFTN(_SFSample* sample);
[[nodiscard]] bool readExtendedMplsLdpFec(_SFSample* sample);
[[nodiscard]] bool readExtendedVlanTunnel(_SFSample* sample);
[[nodiscard]] bool readExtendedWifiPayload(_SFSample* sample);
[[nodiscard]] bool readExtendedWifiReceive(_SFSample* sample);
[[nodiscard]] bool readExtendedWifiTransmit(_SFSample* sample);
[[nodiscard]] bool readExtendedSocket4(_SFSample* sample);
[[nodiscard]] bool readExtendedSocket6(_SFSample* sample);
[[nodiscard]] bool readFlowSample_memcache(_SFSample* sample);
[[nodiscard]] bool readFlowSample_http(_SFSample* sample);
