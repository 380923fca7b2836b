// SPDX-License-Identifier: Apache-2.0
// A small XML document reader: a whole text becomes a tree of reference-counted nodes, looked up by
// name. Made for policy files: forgiving about order, case and missing things, strict about a
// document that is broken.
//
// Common to all operations:
//   - Names are compared without regard to ASCII case. A null name matches nothing.
//   - Texts are NUL-terminated and borrowed: they live as long as a handle to the document is held.
//   - The options of setGlobalOptions are each thread's own. Reference counts are plain numbers, so
//     all handles of one document stay on one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// The numbers are part of the interface, also those of operations that this reader does not have
// (from 16 on).
enum XMLError : std::int32_t {
  kXmlNone = 0,
  kXmlUnmatchedEndTagWarning = 1,  // the tree is whole enough to be used
  kXmlNoXmlTag = 2,
  kXmlFirstTokenNotStartTag = 3,
  kXmlMissingTagName = 4,
  kXmlMissingEndTagName = 5,
  kXmlUnmatchedQuote = 6,
  kXmlUnmatchedEndTag = 7,
  kXmlUnmatchedClearTagEnd = 8,
  kXmlUnexpectedToken = 9,
  kXmlInvalidTag = 10,
  kXmlNoElements = 11,
  kXmlFileNotFound = 12,
  kXmlFirstTagNotFound = 13,
  kXmlUnknownEntity = 14,
  kXmlCharConversion = 15,
  kXmlCannotOpenWriteFile = 16,
  kXmlCannotWriteFile = 17,
  kXmlBase64SizeNotMultipleOf4 = 18,
  kXmlBase64IllegalCharacter = 19,
  kXmlBase64Truncated = 20,
  kXmlBase64BufferTooSmall = 21,
};

// How a parse went. line and column count from 1 and say where the reader stopped; both are 0 when
// nothing was wrong and when there was no text to read.
struct XMLResults {
  XMLError error;
  std::int32_t line;
  std::int32_t column;
};

using XMLOwnedText = std::unique_ptr<char[]>;

// An attribute of an element; value is null for an attribute written without "=".
struct XMLAttribute {
  XMLOwnedText name;
  XMLOwnedText value;
};

// A section kept verbatim, such as a comment; open and close are the marks around it.
struct XMLClear {
  const char* open = nullptr;
  XMLOwnedText content;
  const char* close = nullptr;
};

// A row of the table of verbatim sections: open is compared without regard to case, close exactly.
struct ALLXMLClearTag {
  std::string_view open;
  std::string_view close;
};

enum class XMLEntryKind : std::uint8_t { kChild, kText, kClear, kAttribute };

// An entry of a node in document order: what it is, and its index among those of its kind.
struct XMLEntry {
  XMLEntryKind kind;
  std::int32_t index;
};

namespace flow {
class XmlTreeParser;
}

// A handle to a node, or to none: the empty node. Copies share the node; the last handle frees it
// with all it holds, however deep. Every lookup on the empty node finds nothing, so chains of
// lookups need no checks in between.
class XMLNode {
 public:
  struct XMLNodeDataTag;

  XMLNode() noexcept = default;
  XMLNode(const XMLNode& other) noexcept;
  XMLNode(XMLNode&& other) noexcept;
  XMLNode& operator=(const XMLNode& other) noexcept;
  XMLNode& operator=(XMLNode&& other) noexcept;
  ~XMLNode();

  // Reading. The top is the document's only entry when that is an element, else a nameless node
  // around all entries. tag names the element to return: the top itself, or a child of the top or
  // of its first XML declaration (which holds what follows it). Without a tag (null or empty) the
  // top is returned. A warning keeps the tree, any other error gives the empty node. results may be
  // null.
  static XMLNode parseString(const char* text, const char* tag = nullptr,
                             XMLResults* results = nullptr);
  static XMLNode parseFile(const char* file_name, const char* tag = nullptr,
                           XMLResults* results = nullptr);

  // As openFileHelper reads a file, for a program that can go on without it: *fault is what is
  // wrong with it, empty when nothing is.
  static XMLNode tryFile(const char* file_name, const char* tag, std::string* fault);

  // For a program that cannot go on without the file: any error, a warning included, is printed to
  // standard output and ends the process with status 255, exit handlers included. Sets the strict
  // UTF-8 option to what the file's first 200 bytes suggest.
  static XMLNode openFileHelper(const char* file_name, const char* tag = nullptr);

  // Whether a text of length bytes is better read as UTF-8 than as single bytes.
  // use_encoding_attribute: consult the encoding="..." of an XML declaration.
  static bool guessUTF8ParsingParameterValue(const void* text, int length,
                                             char use_encoding_attribute = 1);

  // All three start on. guess_wide_chars: files of 32-bit characters are converted. strict_utf8: a
  // multi-byte sequence counts as one character. drop_white_space: texts are trimmed, and dropped
  // when nothing is left.
  static void setGlobalOptions(char guess_wide_chars = 1, char strict_utf8 = 1,
                               char drop_white_space = 1);

  static const char* getVersion();  // of this interface
  static const char* getError(XMLError error);
  static std::span<const ALLXMLClearTag> getClearTagTable();

  // The node itself.
  [[nodiscard]] bool isEmpty() const noexcept { return data_ == nullptr; }
  [[nodiscard]] const char* getName() const;     // null for the empty and the nameless node
  [[nodiscard]] bool isDeclaration() const;      // opened by "<?"
  [[nodiscard]] XMLNode getParentNode() const;   // empty for the top, and once the parent is freed
  [[nodiscard]] int nElement() const;            // entries of every kind
  [[nodiscard]] XMLEntry getEntry(int i) const;  // i-th in document order; 0 <= i < nElement()

  // Children. With an index pointer the search starts at *index (0 when null) and leaves the
  // position after the find there; this is the way to walk all children of a name.
  [[nodiscard]] int nChildNode() const;
  [[nodiscard]] int nChildNode(const char* name) const;
  [[nodiscard]] XMLNode getChildNode(int i) const;
  XMLNode getChildNode(const char* name, int* index = nullptr) const;
  [[nodiscard]] XMLNode getChildNode(const char* name, int n) const;

  // Texts between the tags, entities decoded; verbatim sections; attributes.
  [[nodiscard]] int nText() const;
  [[nodiscard]] const char* getText(int i = 0) const;  // null when there is none
  [[nodiscard]] int nClear() const;
  [[nodiscard]] const XMLClear* getClear(int i = 0) const;  // null when there is none
  [[nodiscard]] int nAttribute() const;
  [[nodiscard]] const XMLAttribute* getAttribute(int i) const;  // null when there is none
  const char* getAttribute(const char* name, int* index = nullptr) const;  // null when absent
  [[nodiscard]] const char* getAttribute(const char* name, int n) const;
  [[nodiscard]] bool isAttributeSet(const char* name) const;

  // The text of the first child called name as a setting. Without that child or its text: the
  // default, or std::invalid_argument where there is none. A bool is true exactly for "true" in any
  // case; an int is read as strtol does in base 10 and cut to 32 bits.
  [[nodiscard]] bool GetBoolProperty(const char* name, bool default_value) const;
  [[nodiscard]] int GetIntProperty(const char* name, int default_value) const;
  [[nodiscard]] const char* GetStringProperty(const char* name, const char* default_value) const;
  [[nodiscard]] bool GetBoolProperty(const char* name) const;
  [[nodiscard]] int GetIntProperty(const char* name) const;
  [[nodiscard]] const char* GetStringProperty(const char* name) const;

 private:
  friend class flow::XmlTreeParser;

  explicit XMLNode(XMLNodeDataTag* data) noexcept;  // takes a reference
  void Release() noexcept;

  XMLNodeDataTag* data_ = nullptr;
};
