// SPDX-License-Identifier: Apache-2.0
// Handles, lookups and settings.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "tests/util/xml_text.h"
#include "util/xmlParser.h"

namespace {

TEST(XmlNode, ChildrenByNameAndPosition) {
  const XMLNode node = XMLNode::parseString("<a><x>0</x><y/><X>1</X>text<z/></a>");
  EXPECT_EQ(node.nChildNode(), 4);
  EXPECT_EQ(node.nChildNode("x"), 2);
  EXPECT_EQ(node.nChildNode("w"), 0);
  EXPECT_STREQ(node.getChildNode(3).getName(), "z");
  EXPECT_STREQ(node.getChildNode("x", 1).getText(), "1");
  EXPECT_STREQ(node.getChildNode("x").getText(), "0");
  for (const int n : {-1, 2, 1000000}) EXPECT_TRUE(node.getChildNode("x", n).isEmpty()) << n;
  for (const int i : {-1, 4}) EXPECT_TRUE(node.getChildNode(i).isEmpty()) << i;
  EXPECT_TRUE(node.getChildNode(static_cast<const char*>(nullptr)).isEmpty());

  int index = 0;
  EXPECT_STREQ(node.getChildNode("x", &index).getText(), "0");
  EXPECT_EQ(index, 1);
  EXPECT_STREQ(node.getChildNode("x", &index).getText(), "1");
  EXPECT_EQ(index, 3);
  EXPECT_TRUE(node.getChildNode("x", &index).isEmpty());
  EXPECT_EQ(index, 3) << "stays when nothing is found";
}

TEST(XmlNode, AttributesByNameAndPosition) {
  const XMLNode node = XMLNode::parseString("<a k='0' flag K='1' k/>");
  EXPECT_STREQ(node.getAttribute("k"), "0");
  EXPECT_STREQ(node.getAttribute("k", 1), "1");
  EXPECT_EQ(node.getAttribute("k", 2), nullptr) << "there, but without a value";
  EXPECT_EQ(node.getAttribute("k", 3), nullptr);
  EXPECT_TRUE(node.isAttributeSet("FLAG"));
  EXPECT_EQ(node.getAttribute("flag"), nullptr);
  EXPECT_FALSE(node.isAttributeSet("other"));

  int index = 1;
  EXPECT_STREQ(node.getAttribute("k", &index), "1");
  EXPECT_EQ(index, 3);
}

TEST(XmlNode, EveryLookupOnTheEmptyNodeFindsNothing) {
  const XMLNode empty = XMLNode::parseString("<a/>").getChildNode("x").getChildNode("y", 3);
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(empty.getName(), nullptr);
  EXPECT_EQ(empty.getText(), nullptr);
  EXPECT_EQ(empty.getClear(), nullptr);
  EXPECT_EQ(empty.getAttribute("k"), nullptr);
  EXPECT_EQ(empty.getAttribute("k", 0), nullptr);
  EXPECT_FALSE(empty.isAttributeSet("k"));
  EXPECT_FALSE(empty.isDeclaration());
  EXPECT_TRUE(empty.getParentNode().isEmpty());
  EXPECT_TRUE(empty.getChildNode(0).isEmpty());
  EXPECT_EQ(empty.nChildNode("x") + empty.nChildNode() + empty.nText() + empty.nElement(), 0);
  EXPECT_EQ(empty.GetIntProperty("x", 7), 7);
}

TEST(XmlNode, LastHandleFreesAndChildrenMayStay) {
  XMLNode node = XMLNode::parseString("<a><b>text<c/></b></a>");
  XMLNode child = node.getChildNode("b");
  XMLNode grandchild = child.getChildNode("c");
  EXPECT_STREQ(grandchild.getParentNode().getParentNode().getName(), "a");
  EXPECT_TRUE(node.getParentNode().isEmpty());

  node = {};
  EXPECT_TRUE(child.getParentNode().isEmpty()) << "its parent is gone";
  EXPECT_EQ(XmlText(child), "b('text' c())");

  const XMLNode& alias = child;
  child = alias;  // to itself
  EXPECT_EQ(XmlText(child), "b('text' c())");
  child = std::move(grandchild);  // its own child: frees what it leaves
  EXPECT_EQ(XmlText(child), "c()");
  EXPECT_TRUE(child.getParentNode().isEmpty());
}

// The document proper: what stood around the tag, the declaration here, goes at once.
TEST(XmlNode, TextsLiveAsLongAsAHandleToTheDocument) {
  XMLNode document = XMLNode::parseString("<?xml?><a><b>text</b></a>", "a");
  EXPECT_TRUE(document.getParentNode().isEmpty());
  const char* text = document.GetStringProperty("b");
  const XMLNode holder = document;
  document = {};
  EXPECT_STREQ(text, "text");
  EXPECT_FALSE(holder.isEmpty());
}

TEST(XmlNode, BoolIsTrueForTrueAlone) {
  struct {
    const char* text;
    bool value;
    bool is_default;
  } const kCases[] = {
      {"<b>true</b>", true, false},
      {"<b>TruE</b>", true, false},
      {"<B>\n true </B>", true, false},
      {"<b>false</b>", false, false},
      {"<b>1</b>", false, false},
      {"<b>yes</b>", false, false},
      {"<b>truee</b>", false, false},
      {"<b>tru</b>", false, false},
      {"<b>x</b><b>true</b>", false, false},  // the first one counts
      {"<b><x/>true</b>", true, false},
      {"<b/>", false, true},
      {"<b> </b>", false, true},
      {"<c/>", false, true},
      {"<b><![CDATA[true]]></b>", false, true},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.text);
    const std::string document = "<a>" + std::string(row.text) + "</a>";
    const XMLNode node = XMLNode::parseString(document.c_str());
    for (const bool default_value : {false, true}) {
      EXPECT_EQ(node.GetBoolProperty("b", default_value),
                row.is_default ? default_value : row.value);
    }
    if (row.is_default) {
      EXPECT_THROW(static_cast<void>(node.GetBoolProperty("b")), std::invalid_argument);
    } else {
      EXPECT_EQ(node.GetBoolProperty("b"), row.value);
    }
  }
}

TEST(XmlNode, IntIsReadAsADecimalNumber) {
  struct {
    const char* text;
    int value;
  } const kCases[] = {
      {"60", 60},        {"-60", -60},
      {"+60s", 60},      {"ten", 0},
      {"0x10", 0},       {"010", 10},
      {"&#9; 7", 7},     {"2147483648", -2147483647 - 1},
      {"4294967297", 1}, {"99999999999999999999", -1},  // clipped to 64 bits, then cut to 32
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.text);
    const std::string document = "<a><n>" + std::string(row.text) + "</n></a>";
    const XMLNode node = XMLNode::parseString(document.c_str());
    EXPECT_EQ(node.GetIntProperty("N", 5), row.value);
    EXPECT_EQ(node.GetIntProperty("n"), row.value);
  }
  EXPECT_EQ(XMLNode::parseString("<a><n/></a>").GetIntProperty("n", 5), 5);
}

TEST(XmlNode, MissingPropertyIsNamed) {
  const XMLNode node = XMLNode::parseString("<a><s/></a>");
  EXPECT_STREQ(node.GetStringProperty("s", "default"), "default");
  try {
    static_cast<void>(node.GetStringProperty("s"));
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "Property s not found (invalid_arg)");
  }
  EXPECT_THROW(static_cast<void>(XMLNode().GetIntProperty("n")), std::invalid_argument);
}

TEST(XmlNode, ErrorTextsAreThereForEveryCode) {
  EXPECT_STREQ(XMLNode::getError(kXmlNone), "No error");
  EXPECT_STREQ(XMLNode::getError(kXmlFirstTagNotFound), "Error: First Tag not found");
  EXPECT_STREQ(XMLNode::getError(kXmlBase64BufferTooSmall),
               "Error: Base64 decode output buffer is too small");
  for (const int code : {-1, 22}) {
    EXPECT_STREQ(XMLNode::getError(static_cast<XMLError>(code)), "Unknown") << code;
  }
}

}  // namespace
