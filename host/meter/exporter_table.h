// What every exporter has sent.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "host/capture/timestamp.h"
#include "host/meter/export_format.h"

namespace flow::host {

// Why a datagram was not metered.
enum class Refusal : std::uint8_t { kNone, kNotClaimed, kUnknownVersion, kCutShort, kFailed };
inline constexpr std::size_t kRefusals = 5;

// RefusalText is the reason as it reads after a number, as in "3 of an unknown version"; RefusalId
// its name in files.
std::string_view RefusalText(Refusal refusal);
std::string_view RefusalId(Refusal refusal);

struct ExporterKey {
  std::uint32_t address = 0;  // host byte order
  std::uint16_t port = 0;     // UDP source port
  ExportVersion version;

  friend auto operator<=>(const ExporterKey&, const ExporterKey&) = default;

  template <class Hash>
  friend Hash AbslHashValue(Hash hash, const ExporterKey& key) {
    return Hash::combine(std::move(hash), key.address, key.port, key.version.sflow,
                         key.version.number);
  }
};

struct ExporterCounts {
  std::uint64_t datagrams = 0;
  std::uint64_t bytes = 0;  // of export datagrams, UDP headers left out
  std::uint64_t records = 0;
  std::uint64_t templates = 0;     // known now; filled in by Rows
  std::uint64_t unknown_sets = 0;  // data sets whose template was not known
  std::array<std::uint64_t, kRefusals> refused{};
  Timestamp last_seen = 0;

  [[nodiscard]] std::uint64_t Refused() const;
  void Add(const ExporterCounts& other);
};

// A datagram that went through a meter.
struct MeteredDatagram {
  std::uint32_t exporter = 0;  // as the meter saw it, host byte order
  std::uint16_t port = 0;
  Timestamp time = 0;
  std::span<const std::uint8_t> bytes;  // without a shim
  std::uint64_t records = 0;
  Refusal refusal = Refusal::kNone;
};

class ExporterTable {
 public:
  struct Row {
    ExporterKey key;
    ExporterCounts counts;
  };

  // NoteTemplates takes a message that a meter posted on the template channel while it counted the
  // datagram that Note is told of next.
  void NoteTemplates(std::span<const std::uint8_t> message);

  void Note(const MeteredDatagram& datagram);

  void Merge(const ExporterTable& other);

  // By address, port and version.
  [[nodiscard]] std::vector<Row> Rows() const;

 private:
  // The templates of one address and port: when each was first posted, as a count of datagrams.
  using Templates = absl::flat_hash_map<std::uint16_t, std::uint64_t>;

  static std::uint64_t SourceOf(std::uint32_t address, std::uint16_t port) {
    return std::uint64_t{address} << 16 | port;
  }
  [[nodiscard]] std::uint64_t CountUnknownSets(const MeteredDatagram& datagram) const;

  absl::flat_hash_map<ExporterKey, ExporterCounts> exporters_;
  absl::flat_hash_map<std::uint64_t, Templates> templates_;
  std::uint64_t datagrams_ = 0;
};

}  // namespace flow::host
