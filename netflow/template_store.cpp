// SPDX-License-Identifier: Apache-2.0
#include "netflow/template_store.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "netflow/export_formats.h"
#include "plugin/site_log.h"
#include "util/str_tokenizer.h"

namespace flow {
namespace {

constexpr std::uint16_t kEnterpriseBit = 0x8000;
constexpr std::size_t kSpecifierSize = 4;
constexpr std::size_t kOptionsHeaderSize = 10;  // set header, template id, two lengths or counts

// Reads one specifier; the enterprise number that may follow in IPFIX is not kept.
bool TakeField(TemplateRules rules, ByteCursor* specifiers, nf9_field_t* field) {
  std::uint16_t type = 0;
  std::uint16_t length = 0;
  if (!specifiers->TakeBe16(&type) || !specifiers->TakeBe16(&length)) return false;
  *field = {type, length};
  std::uint32_t enterprise = 0;
  return rules != TemplateRules::kIpfix || (type & kEnterpriseBit) == 0 ||
         specifiers->TakeBe32(&enterprise);
}

// Reads `count` specifiers; false when they do not fit.
bool TakeFields(TemplateRules rules, std::size_t count, ByteCursor* specifiers,
                std::vector<nf9_field_t>* fields) {
  if (count > specifiers->Remaining() / kSpecifierSize) return false;
  fields->reserve(fields->size() + count);
  for (; count > 0; --count) {
    nf9_field_t field;
    if (!TakeField(rules, specifiers, &field)) return false;
    fields->push_back(field);
  }
  return true;
}

constexpr std::size_t SpecifiersIn(std::size_t bytes) {
  return (bytes + kSpecifierSize - 1) / kSpecifierSize;
}

}  // namespace

const Template* TemplateStore::Find(const ExportSource& source, std::uint32_t id,
                                    SetError* why) const {
  if (source.domain) return FindInDomain(source, id, why);
  const auto learnt = ExporterTemplates.find(source.key);
  const bool is_known = learnt != ExporterTemplates.end();
  const TemplateMap& templates = is_known ? learnt->second.templates : StaticTemplateMap;
  const auto found = templates.find(id);
  if (found != templates.end()) return &found->second;
  *why = is_known ? SetError::kUnknownTemplate : SetError::kUnknownExporter;
  return nullptr;
}

// What is known of the exporter alone stands in for what its domain has not sent.
const Template* TemplateStore::FindInDomain(const ExportSource& source, std::uint32_t id,
                                            SetError* why) const {
  const auto domain = domains_.find({source.key, *source.domain});
  const auto exporter = ExporterTemplates.find(source.key);
  const TemplateMap* const maps[] = {
      domain == domains_.end() ? nullptr : &domain->second.templates,
      exporter == ExporterTemplates.end() ? nullptr : &exporter->second.templates};
  const bool is_known = maps[0] != nullptr || maps[1] != nullptr;
  for (const TemplateMap* map : {maps[0], maps[1], is_known ? nullptr : &StaticTemplateMap}) {
    if (map == nullptr) continue;
    const auto found = map->find(id);
    if (found != map->end()) return &found->second;
  }
  *why = is_known ? SetError::kUnknownTemplate : SetError::kUnknownExporter;
  return nullptr;
}

TemplateStore::Exporter& TemplateStore::ExporterOf(const ExportSource& source) {
  return source.domain ? domains_[{source.key, *source.domain}] : ExporterTemplates[source.key];
}

SetError TemplateStore::v9_ProcessTemplateFlowset_Single(const ExportSource& source,
                                                         TemplateRules rules, std::uint32_t now,
                                                         ByteCursor* records) {
  std::uint16_t id = 0;
  std::uint16_t count = 0;
  std::vector<nf9_field_t> fields;
  if (!records->TakeBe16(&id) || !records->TakeBe16(&count) ||
      !TakeFields(rules, count, records, &fields)) {
    return SetError::kTemplateOverflow;
  }
  Exporter& entry = ExporterOf(source);
  entry.receipt_time = now;
  entry.has_receipt_time = true;
  entry.templates.insert_or_assign(id, Template(std::move(fields)));
  return SetError::kNone;
}

bool TemplateStore::LearnV9Options(const ExportSource& source, std::span<const std::uint8_t> set) {
  if (set.size() < kOptionsHeaderSize) return false;
  const std::uint16_t id = LoadBe16(&set[4]);
  const std::size_t scopes = SpecifiersIn(LoadBe16(&set[6]));
  const std::size_t option_length = LoadBe16(&set[8]);
  ByteCursor specifiers(set.subspan(kOptionsHeaderSize));
  std::vector<nf9_field_t> fields;
  if (!TakeFields(TemplateRules::kV9, scopes, &specifiers, &fields)) return false;
  for (nf9_field_t& scope : fields) scope.type += kScopeTypeBase;
  if (option_length > specifiers.Remaining()) return false;
  // A last specifier that the end of the set cuts is none.
  const std::size_t options =
      std::min(SpecifiersIn(option_length), specifiers.Remaining() / kSpecifierSize);
  if (!TakeFields(TemplateRules::kV9, options, &specifiers, &fields)) return false;
  ExporterOf(source).templates.insert_or_assign(id, Template(std::move(fields)));
  return true;
}

bool TemplateStore::LearnIpfixOptions(const ExportSource& source,
                                      std::span<const std::uint8_t> set) {
  if (set.size() < kOptionsHeaderSize - 2) return false;  // no template id and field count
  const std::uint16_t id = LoadBe16(&set[4]);
  const std::uint16_t count = LoadBe16(&set[6]);
  std::vector<nf9_field_t> fields;
  bool is_whole = false;
  if (set.size() >= kOptionsHeaderSize) {
    ByteCursor specifiers(set.subspan(kOptionsHeaderSize));
    is_whole = TakeFields(TemplateRules::kIpfix, count, &specifiers, &fields);
  }
  if (!is_whole) fields.clear();
  ExporterOf(source).templates.insert_or_assign(id, Template(std::move(fields)));
  return is_whole;
}

void TemplateStore::ProcessStaticTemplate(const XMLNode& element, IOmbrelContainer* site) {
  const char* const id_text = element.getAttribute("id");
  const char* const field_list = element.getChildNode("Fields").getText();
  if (id_text == nullptr || field_list == nullptr) {
    Log(site, kLogError, "Static template without id or Fields, ignored");
    return;
  }
  const char* const name = element.getAttribute("name");
  const std::string which =
      std::string(" in static template ") + id_text + ", " + (name != nullptr ? name : "");
  std::vector<nf9_field_t> fields;
  const StrTokenizer ids(field_list, ',');
  for (unsigned long i = 0; i < ids.GetCount(); ++i) {
    const int id = static_cast<int>(std::strtol(ids.GetToken(i), nullptr, 10));
    const int length = GetDefaultLengthForAttribute(id);
    if (length < 0) {
      Log(site, kLogError, "Unsupported attribute: " + std::to_string(id) + which);
      return;
    }
    fields.push_back({static_cast<std::uint32_t>(id), static_cast<std::uint32_t>(length)});
  }
  const auto id = static_cast<std::uint32_t>(std::strtol(id_text, nullptr, 10));
  if (!StaticTemplateMap.try_emplace(id, std::move(fields)).second) {
    Log(site, kLogWarning, "Duplicate templ id :" + which);
  }
}

}  // namespace flow
