// SPDX-License-Identifier: Apache-2.0
// Which NetFlow v9 and IPFIX datagrams any lane can meter, by what has gone by at the intake: data
// alone, of templates that say nothing but what a flow carried.
//
// What an exporter tells beside that goes to its own lane, in order, and from there to the others:
// templates by the channels of the meters, sampling rates as lessons. The exporter's data stays
// with its lane until that has metered what was told; and before it does, the others have to be
// done with the data that they were given.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "host/base/endpoint.h"
#include "host/export/export_format.h"

namespace flow::host {

class TemplateLedger {
 public:
  // What a datagram is to lanes.
  struct Kind {
    bool is_data = false;          // and nothing else, of templates that are known and plain
    std::uint64_t known_from = 0;  // the batch of the exporter's lane behind which all know them
    bool tells = false;            // what lanes will have from the exporter's
  };

  // Take notes what a datagram tells, without a shim. batch is the number of the one in which it
  // would go to its exporter's lane.
  Kind Take(const Endpoint& exporter, std::span<const std::uint8_t> datagram, std::uint64_t batch);

  // NoteLost takes it that a datagram which tells something did not come to its lane.
  void NoteLost(const IpAddress& exporter);
  // LeaveAlone has an exporter's data stay with its lane for ever; true the first time.
  bool LeaveAlone(const IpAddress& exporter);
  // NoteReload is for policies that were read again: meters forget rates then.
  void NoteReload() { ++reloads_; }

 private:
  using Bytes = std::span<const std::uint8_t>;

  struct Key {
    std::uint16_t port;
    std::uint16_t id;

    friend bool operator==(const Key&, const Key&) = default;
    template <class Hash>
    friend Hash AbslHashValue(Hash hash, const Key& key) {
      return Hash::combine(std::move(hash), key.port, key.id);
    }
  };
  struct Definition {
    std::uint16_t set = 0;
    std::vector<std::uint8_t> bytes;  // as it was told
    std::vector<std::uint32_t> domains;
    bool is_plain = false;
    bool tells_rate = false;
  };
  // An address: meters keep rates by it, whatever the port.
  struct Exporter {
    absl::flat_hash_map<Key, Definition> definitions;
    std::uint64_t known_from = 0;
    std::uint64_t reloads = 0;  // when it told its rate
    std::size_t rates = 0;      // hash of what the last datagram with rates told; 0 after a change
    std::uint32_t changes = 0;  // of what it has told
    bool has_rate = false;
    bool stays = false;
  };
  // A datagram at hand.
  struct Datagram {
    Exporter* exporter;
    std::uint16_t port;
    std::uint32_t domain;
    bool is_data = true;
    bool is_change = false;
    std::size_t rates = 0;  // hash of what it tells of them
  };

  Exporter* ExporterOf(const IpAddress& address);
  // Keep has the data of an exporter stay with its lane; Forget lets go what is known of it.
  void Keep(Exporter* exporter);
  void Forget(Exporter* exporter);
  void TakeSet(const ExportSet& set, Datagram* datagram);
  void TakeRates(Datagram* datagram) const;
  void NoteUndescribed(std::uint16_t id, Datagram* datagram);
  void TakeTemplates(Bytes set, Datagram* datagram);
  void Define(std::uint16_t set, std::uint16_t id, Bytes bytes, bool tells_rate,
              Datagram* datagram);

  absl::flat_hash_map<IpAddress, Exporter> exporters_;
  std::size_t bytes_ = 0;  // about what definitions take
  std::uint64_t reloads_ = 0;
};

}  // namespace flow::host
