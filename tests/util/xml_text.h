// SPDX-License-Identifier: Apache-2.0
// A node as one line of text, for tables of expectations.
#pragma once

#include <string>

#include "util/xmlParser.h"

// Entries in document order: child(...), ?declaration(...), 'text', @attribute=value, @without, and
// {open|content|close} for a verbatim section. A nameless top is *(...), the empty node "empty".
inline std::string XmlText(const XMLNode& node) {
  if (node.isEmpty()) return "empty";
  std::string text = node.isDeclaration() ? "?" : "";
  text += node.getName() == nullptr ? "*" : node.getName();
  text += '(';
  for (int i = 0; i < node.nElement(); ++i) {
    const XMLEntry entry = node.getEntry(i);
    if (i > 0) text += ' ';
    switch (entry.kind) {
      case XMLEntryKind::kChild:
        text += XmlText(node.getChildNode(entry.index));
        break;
      case XMLEntryKind::kText:
        text += "'" + std::string(node.getText(entry.index)) + "'";
        break;
      case XMLEntryKind::kClear: {
        const XMLClear& clear = *node.getClear(entry.index);
        text += std::string("{") + clear.open + "|" + clear.content.get() + "|" + clear.close + "}";
        break;
      }
      case XMLEntryKind::kAttribute: {
        const XMLAttribute& attribute = *node.getAttribute(entry.index);
        text += std::string("@") + attribute.name.get();
        if (attribute.value != nullptr) text += std::string("=") + attribute.value.get();
        break;
      }
    }
  }
  return text + ')';
}
