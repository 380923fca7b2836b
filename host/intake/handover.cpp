// SPDX-License-Identifier: Apache-2.0
#include "host/intake/handover.h"

#include <algorithm>
#include <utility>

#include "host/base/big_endian.h"
#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

constexpr std::size_t kV9Header = 20;
constexpr std::size_t kIpfixHeader = 16;
constexpr std::size_t kSetHeader = 4;
constexpr std::uint16_t kFirstIpfixSet = 2;  // of templates

// What a template takes, here and in a meter, beside the bytes of its set.
constexpr std::size_t kTemplateCost = 600;

bool IsIpfix(std::span<const std::uint8_t> datagram) { return Be16(datagram.data()) == 10; }

void PutBe16(std::size_t value, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>(value >> 8);
  out[1] = static_cast<std::uint8_t>(value);
}

// A datagram with the header of another and these sets alone, the first of which tells its version:
// meters take data of the one by templates of the other.
std::vector<std::uint8_t> WithSets(std::span<const std::uint8_t> datagram,
                                   std::initializer_list<std::span<const std::uint8_t>> sets) {
  const bool was_ipfix = IsIpfix(datagram);
  const bool is_ipfix = Be16(sets.begin()->data()) >= kFirstIpfixSet;
  const auto header = datagram.first(was_ipfix ? kIpfixHeader : kV9Header);
  std::vector<std::uint8_t> made(header.begin(), header.end());
  const auto uptime = made.begin() + 4;  // that only v9 has
  if (is_ipfix && !was_ipfix) made.erase(uptime, uptime + 4);
  if (!is_ipfix && was_ipfix) made.insert(uptime, 4, 0);
  PutBe16(is_ipfix ? 10 : 9, made.data());
  for (const auto set : sets) made.insert(made.end(), set.begin(), set.end());
  PutBe16(is_ipfix ? made.size() : sets.size(), made.data() + 2);
  return made;
}

// A data set from its last whole record on, for records of one length: of one that is cut short
// behind it meters read what is there.
std::vector<std::uint8_t> FromLastRecord(std::span<const std::uint8_t> set, std::size_t length) {
  const std::size_t records = (set.size() - kSetHeader) / length;
  std::vector<std::uint8_t> made(set.begin(), set.begin() + kSetHeader);
  const auto rest = set.subspan(kSetHeader + (records - 1) * length);
  made.insert(made.end(), rest.begin(), rest.end());
  PutBe16(made.size(), made.data() + 2);
  return made;
}

}  // namespace

void Handover::Take(const Endpoint& exporter, Bytes datagram, Scope scope, const OnRate& on_rate) {
  if (!VersionOf(datagram).HasTemplates()) return;
  ForEachSet(datagram, [&](const ExportSet& set) {
    if (set.is_beyond || set.is_broken) return;
    if (set.holds_templates) TakeTemplates(exporter, datagram, set.bytes, scope);
    if (set.holds_data) TakeRate(exporter, datagram, set.bytes, on_rate);
  });
}

void Handover::TakeTemplates(const Endpoint& exporter, Bytes datagram, Bytes set, Scope scope) {
  Template entry;
  if (scope == Scope::kExporter) {
    // As a meter posts it that does not tell an exporter's domains apart.
    const auto made =
        std::make_shared<std::vector<std::uint8_t>>(MakeTemplateMessage({{exporter, {}}, set}));
    entry.message = std::make_shared<const ChannelMessage>(
        ChannelMessage{CHANNELID_NETFLOW_TEMPLATES, made, {}});
    return KeepSet({exporter}, set, entry);
  }
  entry.datagram = std::make_shared<const std::vector<std::uint8_t>>(WithSets(datagram, {set}));
  KeepSet({exporter, DomainOf(datagram)}, set, entry);
}

void Handover::TakeMessage(const ChannelMessage& message) {
  const auto parsed = ParseTemplateMessage(*message.bytes, HasDomain(message.channel));
  if (!parsed) return;
  Template entry;
  entry.message = std::make_shared<const ChannelMessage>(message);
  KeepSet(parsed->owner, parsed->set, entry);
}

void Handover::KeepSet(const TemplateOwner& owner, Bytes set, const Template& entry) {
  const std::uint16_t set_id = Be16(set.data());
  ++arrivals_;
  ForEachTemplate(set, [&](std::uint16_t id, const TemplateShape& shape) {
    Template kept = entry;
    kept.is_option = set_id == 1 || set_id == 3;
    Keep({owner, id}, shape, std::move(kept));
  });
}

// Each template of a set bears all of its bytes: whichever is left keeps them.
void Handover::Keep(const Key& key, const TemplateShape& shape, Template entry) {
  const std::size_t bytes = entry.datagram ? entry.datagram->size() : entry.message->bytes->size();
  entry.order = arrivals_;
  entry.cost = kTemplateCost + bytes;
  entry.record_length = shape.IsVariable() ? 0 : shape.shortest;
  entry.rate_end = shape.rate_end;
  entry.tells_rate = shape.tells_rate;
  if (cost_ + entry.cost > Shares().handover && !templates_.contains(key)) MakeRoom();
  Template& kept = templates_[key];
  cost_ = cost_ + entry.cost - kept.cost;
  kept = std::move(entry);
}

const Handover::Template* Handover::Find(const Endpoint& exporter, Bytes datagram,
                                         std::uint16_t id) const {
  auto found = templates_.find({{exporter, DomainOf(datagram)}, id});
  if (found == templates_.end()) found = templates_.find({{exporter}, id});
  return found == templates_.end() ? nullptr : &found->second;
}

// A rate is kept with the template that it was told by, which may be another one later.
void Handover::TakeRate(const Endpoint& exporter, Bytes datagram, Bytes set,
                        const OnRate& on_rate) {
  const std::uint16_t id = Be16(set.data());
  const Template* const known = Find(exporter, datagram, id);
  if (known == nullptr || !known->tells_rate) return;
  if (set.size() < kSetHeader + known->rate_end) return;  // cut before it, and the last one stands
  // Where no record has room, it is shorter: a policy may let fields of v9 vary, too.
  const bool is_whole = known->is_option || known->record_length == 0 ||
                        set.size() < kSetHeader + known->record_length;
  const std::vector<std::uint8_t> last = is_whole
                                             ? std::vector<std::uint8_t>(set.begin(), set.end())
                                             : FromLastRecord(set, known->record_length);
  Bytes definition;
  if (known->datagram) {
    const std::size_t header = IsIpfix(*known->datagram) ? kIpfixHeader : kV9Header;
    definition = Bytes(*known->datagram).subspan(header);
  } else {
    const ChannelMessage& message = *known->message;
    definition = ParseTemplateMessage(*message.bytes, HasDomain(message.channel))->set;
  }
  const Key key{{exporter, DomainOf(datagram)}, id};
  const bool is_told = known->is_option && on_rate;
  Rate& rate = rates_[key];
  rate.order = ++arrivals_;
  rate.datagram =
      std::make_shared<const std::vector<std::uint8_t>>(WithSets(datagram, {definition, last}));
  cost_ -= rate.cost;
  rate.cost = rate.datagram->size() + kTemplateCost;
  cost_ += rate.cost;
  if (is_told) on_rate(key.owner, id, *rate.datagram);
  if (cost_ > Shares().handover) MakeRoom();
}

void Handover::ForgetRates() {
  for (const auto& [key, rate] : rates_) cost_ -= rate.cost;
  rates_.clear();
}

void Handover::MakeRoom() {
  using Value = std::pair<std::uint64_t, std::uint64_t>;
  const auto value_of = [&](const auto& entry) {
    return Value{records_by_(entry.first.owner), ~entry.second.order};
  };
  std::vector<Value> values;
  for (const auto& entry : templates_) values.push_back(value_of(entry));
  for (const auto& entry : rates_) values.push_back(value_of(entry));
  if (values.empty()) return;
  has_forgotten_ = true;
  const std::size_t before = values.size();
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>((before - 1) / 2);
  std::nth_element(values.begin(), middle, values.end());
  const auto goes = [&](const auto& entry) {
    if (value_of(entry) > *middle) return false;
    cost_ -= entry.second.cost;
    return true;
  };
  absl::erase_if(templates_, goes);
  absl::erase_if(rates_, goes);
  NoteLetGo(LetGo::kHandover, before - templates_.size() - rates_.size());
}

// Rates come first, each with the template that told it; then the templates as they are now.
void Handover::Teach(const std::function<void(const Lesson&)>& visit) const {
  std::vector<std::pair<std::uint64_t, Lesson>> lessons;
  const auto teach = [&] {
    std::ranges::sort(lessons, {}, [](const auto& lesson) { return lesson.first; });
    for (std::size_t i = 0; i < lessons.size(); ++i) {
      // The templates of a set are taught together.
      if (i == 0 || lessons[i].first != lessons[i - 1].first) visit(lessons[i].second);
    }
    lessons.clear();
  };
  for (const auto& [key, rate] : rates_) {
    lessons.push_back({rate.order, {key.owner.exporter, *rate.datagram, nullptr}});
  }
  teach();
  for (const auto& [key, entry] : templates_) {
    Lesson lesson{key.owner.exporter, {}, entry.message.get()};
    if (entry.datagram) lesson.datagram = *entry.datagram;
    lessons.push_back({entry.order, lesson});
  }
  teach();
}

}  // namespace flow::host
