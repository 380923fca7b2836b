// SPDX-License-Identifier: Apache-2.0
#include "host/policy/policy_names.h"

#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "host/policy/default_policies.h"
#include "host/policy/policy_effects.h"

namespace flow::host {
namespace {

constexpr std::string_view kRoot = "OmbrelPluginConfiguration";

// An element, and the one in which it has an effect.
struct Place {
  std::string_view name;
  std::string_view parent;
  bool repeats = false;  // else the first one counts
};
constexpr Place kSettings = {"Policy", kRoot};
constexpr Place kBesideSettings[] = {
    {"StaticTemplates", kRoot}, {"Template", "StaticTemplates", true}, {"Fields", "Template"},
    {"SamplingRates", kRoot},   {"Rate", "SamplingRates", true},
};

// The plug-in compares names without regard to case.
std::string Lower(std::string name) {
  absl::AsciiStrToLower(&name);
  return name;
}
bool Same(std::string_view a, std::string_view b) {
  return Lower(std::string(a)) == Lower(std::string(b));
}

bool IsNumber(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  return !text.empty() && std::ranges::all_of(text, absl::ascii_isdigit);
}

class NameCheck {
 public:
  NameCheck(std::string_view file_name, std::string_view text)
      : file_name_(file_name), text_(text), settings_(PolicySettings(file_name)) {
    places_.push_back(kSettings);
    for (const PolicySetting& setting : settings_) {
      places_.push_back({setting.key, kSettings.name});
    }
    if (file_name == kNetflowPolicyFile) {
      places_.insert(places_.end(), std::begin(kBesideSettings), std::end(kBesideSettings));
    }
  }

  std::vector<PolicyRemark> Run() {
    // Bytes stay as they are, whatever the encoding, so that offsets are those of the file.
    pugi::xml_document document;
    const pugi::xml_parse_result result =
        document.load_buffer(text_.data(), text_.size(),
                             pugi::parse_default | pugi::parse_trim_pcdata, pugi::encoding_utf8);
    CheckIn(
        document.find_node([](const pugi::xml_node& node) { return Same(node.name(), kRoot); }));
    if (!result) {
      Add(result.offset, fmt::format("not well-formed ({}); the names behind it are not checked",
                                     result.description()));
    }
    if (result) CheckEffects();
    std::ranges::stable_sort(remarks_, {}, &PolicyRemark::line);
    return std::move(remarks_);
  }

 private:
  void CheckIn(const pugi::xml_node& parent) {
    std::set<std::string> seen;
    for (const pugi::xml_node& child : parent.children()) {
      if (child.type() != pugi::node_element) continue;
      const std::string_view name = child.name();
      const auto place =
          std::ranges::find_if(places_, [&](const Place& row) { return Same(row.name, name); });
      if (place == places_.end()) {
        Add(child.offset_debug(), fmt::format("there is no setting {}; it has no effect", name));
      } else if (!Same(place->parent, parent.name())) {
        Add(child.offset_debug(),
            fmt::format("{} has no effect here; it belongs into {}", name, place->parent));
      } else if (!seen.insert(Lower(child.name())).second && !place->repeats) {
        Add(child.offset_debug(), fmt::format("{} is there already; the first one counts", name));
      } else {
        CheckValue(child);
        CheckIn(child);
      }
    }
  }

  // The plug-in takes any text of a switch but true for off, and a number as far as its digits go.
  void CheckValue(const pugi::xml_node& node) {
    const auto setting = std::ranges::find_if(
        settings_, [&](const PolicySetting& row) { return Same(row.key, node.name()); });
    if (Same(node.name(), "Rate")) rates_.push_back(node);
    if (setting == settings_.end()) return;
    texts_[setting->key] = node.child_value();
    offsets_[setting->key] = node.offset_debug();
    const std::string value = Lower(node.child_value());
    if (value.empty()) return;
    if (setting->kind == SettingKind::kSwitch && value != "true" && value != "false") {
      Add(node.offset_debug(), fmt::format("{} is off: its value is neither true nor false, but {}",
                                           node.name(), node.child_value()));
    }
    if (setting->kind == SettingKind::kNumber && !IsNumber(value)) {
      Add(node.offset_debug(),
          fmt::format("{} is no number, but {}", node.name(), node.child_value()));
    }
  }

  void CheckEffects() {
    CheckPolicyEffects(file_name_, texts_, [this](std::string_view key, std::string remark) {
      Add(offsets_[key], std::move(remark));
    });
    CheckRates();
  }

  void CheckRates() {
    constexpr long kMost = 0x3FFF;  // a v5 header has 14 bits for it
    if (IsOn(file_name_, texts_, "Count64Bit")) return;
    for (const pugi::xml_node& node : rates_) {
      const long rate = node.attribute("rate").as_llong();
      if (rate <= kMost) continue;
      Add(node.offset_debug(), fmt::format("the rate {} counts as {} while Count64Bit is off", rate,
                                           std::max(rate & kMost, 1L)));
    }
  }

  void Add(std::ptrdiff_t offset, std::string remark) {
    const auto lines = std::ranges::count(text_.substr(0, static_cast<std::size_t>(offset)), '\n');
    remarks_.push_back({static_cast<std::size_t>(lines) + 1, std::move(remark)});
  }

  std::string_view file_name_;
  std::string_view text_;
  std::span<const PolicySetting> settings_;
  std::vector<Place> places_;
  PolicyTexts texts_;  // what counts, and where it stands
  std::map<std::string_view, std::ptrdiff_t> offsets_;
  std::vector<pugi::xml_node> rates_;
  std::vector<PolicyRemark> remarks_;
};

}  // namespace

std::vector<PolicyRemark> CheckPolicyNames(std::string_view file_name, std::string_view text) {
  // As the plug-in does: a NUL ends the text.
  return NameCheck(file_name, text.substr(0, text.find('\0'))).Run();
}

}  // namespace flow::host
