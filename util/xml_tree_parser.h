// SPDX-License-Identifier: Apache-2.0
// Turns an XML text into a tree of nodes, in one pass and without recursion.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "util/xml_node_data.h"
#include "util/xml_scanner.h"

namespace flow {

class XmlTreeParser {
 public:
  // Parses as the options of the moment say.
  explicit XmlTreeParser(std::string_view text);

  // Parse gives a nameless node that holds everything up to the end or the first error. The error,
  // or the first warning, stands in Error() and its offset in Place().
  XMLNode Parse();
  [[nodiscard]] XMLError Error() const noexcept { return error_; }
  [[nodiscard]] std::size_t Place() const noexcept { return place_; }

 private:
  // Each parses one thing into the innermost open node; false on an error.
  bool ParseText();
  bool ParseTag();
  bool ParseClear(const XmlToken& mark);
  bool ParseElement(bool is_declaration);
  bool ParseStartTag(XMLNode::XMLNodeDataTag* element);
  bool ParseAttribute(XMLNode::XMLNodeDataTag* element, std::string_view name, XmlToken* next);
  bool ParseEndTag(std::size_t tag_place);
  bool PassRestOfTag();

  XMLOwnedText DecodeEntities(std::string_view text);  // null on an error
  void CheckAllClosed();

  bool Fail(XMLError error, std::size_t place);
  // Fails at a token that does not belong into a tag; one that is left open has its own error.
  bool FailAt(const XmlToken& token, XMLError error);
  bool IsLeftOpen(const XmlToken& token);  // a quote or a section; one that is closed is passed
  void Warn(std::size_t place);  // of an end tag that is missing or early; the first one counts

  std::string_view text_;
  XmlOptions options_;
  XmlScanner scanner_;
  std::vector<XMLNode::XMLNodeDataTag*> open_;  // from the nameless top to the innermost
  XMLError error_ = kXmlNone;
  std::size_t place_ = 0;
};

}  // namespace flow
