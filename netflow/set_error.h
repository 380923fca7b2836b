// SPDX-License-Identifier: Apache-2.0
// Why a flowset or set was given up. Nothing of this reaches the host: the walk goes on with the
// next set. The meter keeps the last reason for whoever debugs an exporter.
#pragma once

namespace flow {

enum class SetError {
  kNone,
  kTemplateOverflow,  // a template record reaches beyond its set
  kUnknownTemplate,   // the exporter is known, the template is not
  kUnknownExporter,   // and no static template has the id
  kFieldOverflow,     // a record, or the set's padding, is shorter than the template
  kVariableOverflow,  // a variable-length value reaches beyond the set
};

[[nodiscard]] constexpr const char* SetErrorText(SetError error) noexcept {
  switch (error) {
    case SetError::kNone:
      return "";
    case SetError::kTemplateOverflow:
      return "template record will overflow";
    case SetError::kUnknownTemplate:
      return "unknown template - but router known ";
    case SetError::kUnknownExporter:
      return "unknown router and no static template";
    case SetError::kFieldOverflow:
      return "data not matching template, overflows";
    case SetError::kVariableOverflow:
      return "data not matching template, var string overflows fAllowVariableStrings=true";
  }
  return "";
}

}  // namespace flow
