// SPDX-License-Identifier: Apache-2.0
// What a lane's meters have learnt of exporters, as it came: templates, and the data that told
// sampling rates. Meters that take the place of others learn it from here.
//
// Strangers make up any number of templates. When the share of memory is full, half of what there
// is goes: that of the exporters of which the fewest records were decoded, of these the newest.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "host/export/export_format.h"
#include "host/intake/mailbox.h"

namespace flow::host {

class Handover {
 public:
  // How many records were decoded by an owner's templates.
  using RecordsBy = std::function<std::uint64_t(const TemplateOwner& owner)>;
  explicit Handover(RecordsBy records_by) : records_by_(std::move(records_by)) {}

  // Take keeps what a datagram, without a shim, defines and tells; its templates for all domains of
  // the exporter where that is how the meters took them, whatever their successors would. on_rate,
  // which may be empty, is given a datagram made of each option data that told a rate and of the
  // template that it was told by, with that template's id.
  enum class Scope : std::uint8_t { kDomain, kExporter };
  using OnRate = std::function<void(const TemplateOwner& owner, std::uint16_t id,
                                    std::span<const std::uint8_t> datagram)>;
  void Take(const Endpoint& exporter, std::span<const std::uint8_t> datagram, Scope scope,
            const OnRate& on_rate);
  // The same of a message that a meter was given on a template channel.
  void TakeMessage(const ChannelMessage& message);

  // HasForgotten tells whether it ever let anything go for want of room.
  [[nodiscard]] bool HasForgotten() const { return has_forgotten_; }

  // ForgetRates is for policies that are read again: meters forget rates then.
  void ForgetRates();

  // Either a datagram of an exporter, or a message.
  struct Lesson {
    Endpoint exporter;
    std::span<const std::uint8_t> datagram;
    const ChannelMessage* message = nullptr;
  };
  // Teach calls visit for all that was learnt, in an order that leads to the same knowledge.
  void Teach(const std::function<void(const Lesson&)>& visit) const;

 private:
  using Bytes = std::span<const std::uint8_t>;
  using SharedBytes = std::shared_ptr<const std::vector<std::uint8_t>>;

  struct Key {
    TemplateOwner owner;
    std::uint16_t id = 0;

    friend bool operator==(const Key&, const Key&) = default;
    template <class Hash>
    friend Hash AbslHashValue(Hash hash, const Key& key) {
      return Hash::combine(std::move(hash), key.owner, key.id);
    }
  };
  struct Template {
    std::uint64_t order = 0;  // of arrival
    std::size_t cost = 0;
    SharedBytes datagram;  // or, where there is none,
    std::shared_ptr<const ChannelMessage> message;
    std::uint32_t record_length = 0;  // 0 for one that varies
    std::uint32_t rate_end = 0;
    bool tells_rate = false;
    bool is_option = false;
  };
  struct Rate {
    std::uint64_t order = 0;
    std::size_t cost = 0;
    SharedBytes datagram;
  };

  void Keep(const Key& key, const TemplateShape& shape, Template entry);
  void TakeTemplates(const Endpoint& exporter, Bytes datagram, Bytes set, Scope scope);
  void KeepSet(const TemplateOwner& owner, Bytes set, const Template& entry);
  void TakeRate(const Endpoint& exporter, Bytes datagram, Bytes set, const OnRate& on_rate);
  [[nodiscard]] const Template* Find(const Endpoint& exporter, Bytes datagram,
                                     std::uint16_t id) const;
  void MakeRoom();

  RecordsBy records_by_;
  absl::flat_hash_map<Key, Template> templates_;
  absl::flat_hash_map<Key, Rate> rates_;
  std::size_t cost_ = 0;
  std::uint64_t arrivals_ = 0;
  bool has_forgotten_ = false;
};

}  // namespace flow::host
