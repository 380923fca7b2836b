// SPDX-License-Identifier: Apache-2.0
// The templates that the meter knows: those learnt from each exporter, and the static ones that the
// policy gives for exporters that send none. Learnt templates never expire; a new definition under
// the same id replaces the old one.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "netflow/export_source.h"
#include "netflow/set_error.h"
#include "netflow/template.h"
#include "util/bytes.h"
#include "util/hash.h"
#include "util/xmlParser.h"

namespace flow {

enum class TemplateRules { kV9, kIpfix };

class TemplateStore {
 public:
  // Find gives the template of a data set. The static templates stand in only for an exporter from
  // which nothing has been learnt. Null, with the reason, when there is none; the pointer is valid
  // until a template is stored.
  [[nodiscard]] const Template* Find(const ExportSource& source, std::uint32_t id,
                                     SetError* why) const;

  // v9_ProcessTemplateFlowset_Single reads one template record and stores it. A record that does
  // not fit is refused whole. `now` is the wall clock in seconds.
  SetError v9_ProcessTemplateFlowset_Single(const ExportSource& source, TemplateRules rules,
                                            std::uint32_t now, ByteCursor* records);

  // LearnV9Options and LearnIpfixOptions read the first options template of a set, given from its
  // set header to its end. True when it was stored with its fields, for the others to learn as
  // well.
  bool LearnV9Options(const ExportSource& source, std::span<const std::uint8_t> set);
  bool LearnIpfixOptions(const ExportSource& source, std::span<const std::uint8_t> set);

  [[nodiscard]] std::size_t ExporterCount() const noexcept {
    return ExporterTemplates.size() + domains_.size();
  }

  // ProcessStaticTemplate takes a "Template" element of the policy. What is wrong with it goes to
  // the site's log.
  void ClearStaticTemplates() { StaticTemplateMap.clear(); }
  void ProcessStaticTemplate(const XMLNode& element, IOmbrelContainer* site);

  // DebugDumpTemplates writes the learnt templates for people to read, in the order of exporters'
  // keys and template ids, and flushes. Returns the flush's result.
  int DebugDumpTemplates(FILE* file) const;

 private:
  // Hash tables: a data set of one template out of a million costs few cache misses.
  struct HashKey {
    std::size_t operator()(std::uint64_t key) const noexcept { return HashNumber(key); }
  };
  using TemplateMap = std::unordered_map<std::uint32_t, Template, HashKey>;
  struct Exporter {
    TemplateMap templates;
    std::uint32_t receipt_time = 0;  // of the last template record, wall clock in seconds
    bool has_receipt_time = false;   // options templates alone have none
  };

  // A domain of an exporter: its key and the domain's number.
  using Domain = std::pair<ExporterKey, std::uint32_t>;
  struct HashDomain {
    std::size_t operator()(const Domain& domain) const noexcept {
      return HashNumber(HashNumber(domain.first) + domain.second);
    }
  };

  Exporter& ExporterOf(const ExportSource& source);
  [[nodiscard]] const Template* FindInDomain(const ExportSource& source, std::uint32_t id,
                                             SetError* why) const;
  static void DumpExporter(FILE* file, ExporterKey key, const std::string& domain,
                           const Exporter& exporter);

  std::unordered_map<ExporterKey, Exporter, HashKey> ExporterTemplates;
  // Of sources whose domain is known: what these have sent stands here alone.
  std::unordered_map<Domain, Exporter, HashDomain> domains_;
  TemplateMap StaticTemplateMap;
};

}  // namespace flow
