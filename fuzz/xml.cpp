// SPDX-License-Identifier: Apache-2.0
// The XML reader, on texts and on files. The first byte sets the options.

#include <cstdlib>
#include <string>

#include "fuzz/memory_file.h"
#include "util/xmlParser.h"

namespace {

// Reads everything in the tree; returns the number of its entries. The reader's trees may be deep.
std::size_t Visit(const XMLNode& node, int depth) {
  std::size_t entries = static_cast<std::size_t>(node.nElement());
  for (int i = 0; i < node.nText(); ++i) entries += std::string(node.getText(i)).empty();
  if (depth == 0) return entries;
  for (int i = 0; i < node.nChildNode(); ++i) {
    const XMLNode child = node.getChildNode(i);
    if (child.isEmpty() || child.getName() == nullptr) std::abort();
    if (node.getChildNode(child.getName()).isEmpty()) std::abort();
    entries += Visit(child, depth - 1);
  }
  return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t options = data[0];
  XMLNode::setGlobalOptions(options & 1, options >> 1 & 1, options >> 2 & 1);
  XMLResults results{};
  XMLNode root;
  if ((options & 8) != 0) {
    static const flow::fuzz::MemoryFile file;
    file.Write(data + 1, size - 1);
    root = XMLNode::parseFile(file.Path().c_str(), "Root", &results);
  } else {
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    root = XMLNode::parseString(text.c_str(), "Root", &results);
  }
  if (results.error > 1 && !root.isEmpty()) std::abort();
  // Every entry takes at least one character.
  if (Visit(root, 200) > 2 * size) std::abort();
  return 0;
}
