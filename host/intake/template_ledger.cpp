// SPDX-License-Identifier: Apache-2.0
#include "host/intake/template_ledger.h"

#include <absl/hash/hash.h>

#include <algorithm>
#include <string_view>

#include "host/base/big_endian.h"
#include "host/base/memory_budget.h"

namespace flow::host {
namespace {

constexpr std::size_t kSetHeader = 4;
constexpr std::size_t kTemplateHeader = 4;
constexpr std::size_t kSpecifier = 4;
constexpr std::uint16_t kVariable = 65535;
constexpr std::size_t kMostDomains = 64;
constexpr std::size_t kOverhead = 256;  // about what a definition takes beside its bytes

// Elements that count, or that nobody looks at: from and to, both included. What is not here tells
// names, rates or texts, of which the last counts, or is a vendor's.
struct Range {
  std::uint16_t from;
  std::uint16_t to;
};
constexpr Range kPlain[] = {{1, 33},    {35, 81},   {85, 89},   {130, 131}, {136, 139},
                            {148, 148}, {150, 153}, {176, 179}, {192, 192}, {225, 230},
                            {231, 233}, {239, 239}, {302, 302}, {323, 323}};

bool IsPlain(std::span<const std::uint8_t> fields) {
  std::size_t length = 0;
  for (; fields.size() >= kSpecifier; fields = fields.subspan(kSpecifier)) {
    const std::uint16_t element = Be16(fields.data());
    const std::uint16_t bytes = Be16(fields.data() + 2);
    const auto has = [&](const Range& range) {
      return element >= range.from && element <= range.to;
    };
    if (bytes == kVariable || std::ranges::none_of(kPlain, has)) return false;
    length += bytes;
  }
  return fields.empty() && length > 0;
}

// The bytes of the fields that a template has, so many; none where they are cut.
std::size_t BytesOfFields(std::span<const std::uint8_t> fields, std::size_t count, bool is_ipfix) {
  std::size_t at = 0;
  for (; count > 0 && at + kSpecifier <= fields.size(); --count) {
    const bool is_enterprise = is_ipfix && (fields[at] & 0x80) != 0;
    at += is_enterprise ? 2 * kSpecifier : kSpecifier;
  }
  return count > 0 || at > fields.size() ? 0 : at;
}

}  // namespace

TemplateLedger::Exporter* TemplateLedger::ExporterOf(const IpAddress& address) {
  const auto known = exporters_.find(address);
  if (known != exporters_.end()) return &known->second;
  return exporters_.size() < Shares().exporters ? &exporters_[address] : nullptr;
}

// Of a datagram with anything else than data, whole and in order, its own lane takes care.
TemplateLedger::Kind TemplateLedger::Take(const Endpoint& exporter, Bytes bytes,
                                          std::uint64_t batch) {
  if (IsCutShort(bytes)) return {};  // no meter learns of it
  const auto domain = DomainOf(bytes);
  Exporter* const known = domain ? ExporterOf(exporter.address) : nullptr;
  if (known == nullptr || known->stays) return {};
  Datagram datagram{known, exporter.port, *domain};
  std::size_t behind_sets = bytes.size();
  ForEachSet(bytes, [&](const ExportSet& set) {
    TakeSet(set, &datagram);
    behind_sets -= set.bytes.size();
  });
  TakeRates(&datagram);
  const std::size_t header = VersionOf(bytes).number == 9 ? 20 : 16;
  datagram.is_data = datagram.is_data && behind_sets == header && bytes.size() >= kShortestClaim;
  if (datagram.is_change) {
    // Whoever tells something all the time keeps its data.
    constexpr std::uint32_t kMostPause = 64;
    known->changes = std::min(known->changes + 1, kMostPause);
    known->known_from = batch + known->changes;
  }
  const bool has_told = !known->has_rate || known->reloads == reloads_;
  return {datagram.is_data && has_told && !known->stays, known->known_from, datagram.is_change};
}

void TemplateLedger::TakeSet(const ExportSet& set, Datagram* datagram) {
  if (set.is_broken || set.is_beyond) {
    datagram->is_data = false;
  } else if (set.holds_templates) {
    datagram->is_data = false;
    TakeTemplates(set.bytes, datagram);
  } else {
    Exporter& exporter = *datagram->exporter;
    const auto known = exporter.definitions.find({datagram->port, set.id});
    const Definition* const by =
        known == exporter.definitions.end() ||
                std::ranges::find(known->second.domains, datagram->domain) ==
                    known->second.domains.end()
            ? nullptr
            : &known->second;
    if (by != nullptr && by->is_plain) return;
    datagram->is_data = false;
    if (by == nullptr) return NoteUndescribed(set.id, datagram);
    if (!by->tells_rate) return;
    const std::string_view told(reinterpret_cast<const char*>(set.bytes.data()), set.bytes.size());
    datagram->rates = absl::HashOf(datagram->rates, datagram->port, datagram->domain, told) | 1;
  }
}

// Many exporters tell their rates every few datagrams, which changes nothing where no other rate,
// template or policy has come between.
void TemplateLedger::TakeRates(Datagram* datagram) const {
  Exporter& exporter = *datagram->exporter;
  if (datagram->is_change) exporter.rates = 0;
  if (datagram->rates == 0) return;
  if (exporter.rates != datagram->rates || exporter.reloads != reloads_) {
    exporter.rates = datagram->is_change ? 0 : datagram->rates;
    datagram->is_change = true;
  }
  exporter.has_rate = true;
  exporter.reloads = reloads_;
}

// What nobody has described here a policy may, or what was kept of an earlier run: that shows when
// the exporter's lane meets the first of it.
void TemplateLedger::NoteUndescribed(std::uint16_t id, Datagram* datagram) {
  datagram->is_change = true;
  Exporter& exporter = *datagram->exporter;
  if (exporter.stays) return;
  const auto [place, is_new] = exporter.definitions.try_emplace({datagram->port, id});
  if (is_new) bytes_ += kOverhead;
  auto& domains = place->second.domains;
  if (domains.size() >= kMostDomains || bytes_ > Shares().templates * kOverhead) {
    return Keep(&exporter);
  }
  if (place->second.bytes.empty()) domains.push_back(datagram->domain);
}

void TemplateLedger::TakeTemplates(Bytes set, Datagram* datagram) {
  const std::uint16_t set_id = Be16(set.data());
  const bool is_option = set_id == 1 || set_id == 3;
  std::size_t at = kSetHeader;
  const bool is_whole = ForEachTemplate(set, [&](std::uint16_t id, const TemplateShape& shape) {
    if (is_option) return Define(set_id, id, set, shape.tells_rate, datagram);
    const std::size_t length = kTemplateHeader + BytesOfFields(set.subspan(at + kTemplateHeader),
                                                               Be16(&set[at + 2]), set_id == 2);
    Define(set_id, id, set.subspan(at, length), shape.tells_rate, datagram);
    at += length;
  });
  // Meters keep some of a set that is not whole, and tell nobody.
  if (is_whole && (is_option || at == set.size())) return;
  Keep(datagram->exporter);
  datagram->is_change = true;
}

void TemplateLedger::Define(std::uint16_t set, std::uint16_t id, Bytes bytes, bool tells_rate,
                            Datagram* datagram) {
  Exporter& exporter = *datagram->exporter;
  if (exporter.stays) return;
  const auto [place, is_new] = exporter.definitions.try_emplace({datagram->port, id});
  Definition& known = place->second;
  const bool is_same = known.set == set && std::ranges::equal(known.bytes, bytes) && !is_new;
  if (known.bytes.empty()) known.domains.clear();  // that had data before anybody described it
  const bool has_domain = std::ranges::find(known.domains, datagram->domain) != known.domains.end();
  if (is_same && has_domain) return;
  const bool is_option = set == 1 || set == 3;
  // Whether an exporter's domains have templates of their own is the policy's affair, and rates in
  // every record are too many to tell.
  const bool is_others =
      !is_same && !known.domains.empty() && !(known.domains.size() == 1 && has_domain);
  bytes_ += (is_new ? kOverhead : 0) + bytes.size();
  bytes_ -= known.bytes.size();
  datagram->is_change = true;
  if (is_others || (tells_rate && !is_option) || known.domains.size() >= kMostDomains ||
      bytes_ > Shares().templates * kOverhead) {
    bytes_ += known.bytes.size();
    bytes_ -= bytes.size();
    return Keep(&exporter);
  }
  known.set = set;
  known.bytes.assign(bytes.begin(), bytes.end());
  if (!has_domain) known.domains.push_back(datagram->domain);
  known.is_plain = !is_option && IsPlain(bytes.subspan(kTemplateHeader));
  known.tells_rate = tells_rate;
}

void TemplateLedger::NoteLost(const IpAddress& exporter) {
  const auto known = exporters_.find(exporter);
  if (known == exporters_.end()) return;
  Forget(&known->second);
}

void TemplateLedger::Keep(Exporter* exporter) {
  exporter->stays = true;
  Forget(exporter);
}

void TemplateLedger::Forget(Exporter* exporter) {
  for (const auto& [key, definition] : exporter->definitions) {
    bytes_ -= kOverhead + definition.bytes.size();
  }
  exporter->definitions = {};
  exporter->rates = 0;
}

bool TemplateLedger::LeaveAlone(const IpAddress& exporter) {
  Exporter* const known = ExporterOf(exporter);
  if (known == nullptr || known->stays) return false;
  Keep(known);
  return true;
}

}  // namespace flow::host
