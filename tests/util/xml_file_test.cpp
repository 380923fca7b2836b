// SPDX-License-Identifier: Apache-2.0
// Documents from files: bytes into text, and the end of a program that cannot do without one.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "tests/util/xml_text.h"
#include "util/xmlParser.h"

namespace {

using namespace std::string_literals;
using testing::ExitedWithCode;

class XmlFile : public testing::Test {
 protected:
  XmlFile() {
    std::string pattern = testing::TempDir() + "xml_file_XXXXXX";
    directory_ = mkdtemp(pattern.data());
  }
  ~XmlFile() override {
    XMLNode::setGlobalOptions();
    std::filesystem::remove_all(directory_);
  }

  std::string Path(const char* name) const { return directory_ + "/" + name; }
  std::string Write(const std::string& content) const {
    std::string path = Path("document.xml");
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  // The tree, or the text of the error.
  static std::string Parse(const std::string& path) {
    XMLResults results = {kXmlNoElements, 7, 7};
    const XMLNode node = XMLNode::parseFile(path.c_str(), nullptr, &results);
    return node.isEmpty() ? XMLNode::getError(results.error) : XmlText(node);
  }

 private:
  std::string directory_;
};

// Every byte becomes a unit of 32 bits in the machine's order.
std::string Wide(std::u32string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char32_t)};
}

TEST_F(XmlFile, TakesBytesForWhatTheyAre) {
  const struct {
    const char* name;
    std::string content;
    const char* outcome;
  } kCases[] = {
      {"plain", "<a>x</a>", "a('x')"},
      {"byte-order mark", "\xEF\xBB\xBF<a>x</a>", "a('x')"},
      {"byte-order mark alone", "\xEF\xBB\xBF", "*()"},
      {"wide", Wide(U"<a>x</a>"), "a('x')"},
      {"wide with its mark", Wide(U"\xFEFF<a>x</a>"), "a('x')"},
      {"wide beyond the locale", Wide(U"<a>\u20AC</a>"),
       "Error: unable to convert between UNICODE and MultiByte chars"},
      {"wide, no character", Wide({U"<a>\xFFFFFFFF", 4}),
       "Error: unable to convert between UNICODE and MultiByte chars"},
      {"half of the units small is not wide", Wide(U"<\u20AC"), "Error: Missing start tag name"},
      {"a unit of NULs makes it wide", "<a/>\0\0\0\0<b/><c/>"s,
       "Error: unable to convert between UNICODE and MultiByte chars"},
      {"a unit of NULs beyond the first 256",
       "<a/>" + std::string(1020, ' ') + std::string(4, '\0'), "a()"},
      {"wide, ends in mid-unit", Wide(U"<a/>") + "xx", "a()"},
      {"swapped mark is not wide", "\xFE\xFF\0\0"s, "*('\xFE\xFF')"},
      {"swapped mark of a 32-bit unit", Wide(U"\xFFFE<a/>"), "*('\xFE\xFF')"},
      {"ends at a NUL", "<a/>\0<b>"s + "xyz", "a()"},
      {"a NUL in the root", "<a>x\0y</a>"s + "z", "a('x')"},
      {"NULs alone", "\0\0\0"s, "*()"},
      {"wide NULs", "\0\0\0\0"s, "*()"},
      {"one byte", "x", "*('x')"},
      {"empty", "", "Error: No XML data"},
  };
  for (const auto& row : kCases) EXPECT_EQ(Parse(Write(row.content)), row.outcome) << row.name;

  XMLNode::setGlobalOptions(0, 1, 1);
  EXPECT_EQ(Parse(Write(Wide(U"<a/>"))), "Error: Missing start tag name") << "not guessed";
}

TEST_F(XmlFile, WhatCannotBeReadIsNotFound) {
  EXPECT_EQ(Parse(Path("none.xml")), "Error: File not found");
  EXPECT_EQ(Parse(Path("")), "Error: File not found") << "a directory";
  EXPECT_EQ(Parse(""), "Error: File not found");
  EXPECT_TRUE(XMLNode::parseFile(nullptr).isEmpty());
  EXPECT_EQ(Parse("/dev/null"), "Error: No XML data");
  const std::string path = Write("<a/>");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  if (geteuid() != 0) {  // root reads everything
    EXPECT_EQ(Parse(path), "Error: File not found");
  }
}

TEST_F(XmlFile, GuessesTheEncoding) {
  const struct {
    const char* name;
    std::string text;
    bool with_attribute;
    bool without_attribute;
  } kCases[] = {
      {"24 bytes", std::string(24, 'x'), false, false},
      {"25 bytes", std::string(25, 'x'), true, true},
      {"wide", Wide(U"<a>wide text</a>"), false, false},
      {"byte-order mark before anything", "\xEF\xBB\xBF\xE9 encoding='latin1'      ", true, true},
      {"sound sequences", "<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</a>             ", true, true},
      {"cut at the end", "<a>                         \xE2\x82", true, true},
      {"single bytes", "<a>caf\xE9</a>               ", false, false},
      {"second continuation missing", "<a>\xE2\x82</a>               ", false, false},
      {"stray continuation", "<a>\x80</a>                     ", true, true},
      {"names UTF-8", "<?xml encoding=\"UTF-8\"?><a></a>", true, true},
      {"names UTF8 with blanks", "<?xml encoding = '\tutf8'?><a></a>", true, true},
      {"names another", "<?xml encoding='iso-8859-1'?><a></a>", false, true},
      {"name without quotes", "<?xml encoding=latin1 ?><a></a>", true, true},
      {"word without equals", "<a>encoding latin1</a>              ", true, true},
      {"cut in the name", "<?xml version='1' encoding='UTF", false, true},
      {"word beyond 200 bytes", std::string(193, ' ') + "encoding='latin1'", true, true},
      {"word within 200 bytes", std::string(192, ' ') + "encoding='latin1'", false, true},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const int length = static_cast<int>(row.text.size());
    EXPECT_EQ(XMLNode::guessUTF8ParsingParameterValue(row.text.data(), length, 1),
              row.with_attribute);
    EXPECT_EQ(XMLNode::guessUTF8ParsingParameterValue(row.text.data(), length, 0),
              row.without_attribute);
  }
  EXPECT_FALSE(XMLNode::guessUTF8ParsingParameterValue(nullptr, 100, 1));
}

TEST_F(XmlFile, OpenFileHelperReadsTheFileInItsEncoding) {
  const std::string tail = "</a><!-- so that the file has 25 bytes -->";
  std::string path = Write("<a>caf\xE9" + tail);
  EXPECT_STREQ(XMLNode::openFileHelper(path.c_str(), "A").getText(), "caf\xE9");
  path = Write("<a>caf\xC3\xA9" + tail);
  EXPECT_STREQ(XMLNode::openFileHelper(path.c_str(), "A").getText(), "caf\xC3\xA9");
}

// The other two options keep their values.
TEST_F(XmlFile, OpenFileHelperSetsOneOption) {
  XMLNode::setGlobalOptions(1, 1, 0);
  EXPECT_STREQ(XMLNode::openFileHelper(Write("<a> x </a>").c_str(), "a").getText(), " x ");
}

// Ends the process as openFileHelper does, with standard output where the death test reads.
void OpenOrEnd(const std::string& path) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  const XMLNode node = XMLNode::openFileHelper(path.c_str(), "Root");
  static_cast<void>(node);
}

using XmlFileDeathTest = XmlFile;

TEST_F(XmlFileDeathTest, OpenFileHelperEndsTheProcess) {
  const struct {
    const char* name;
    const char* content;
    const char* message;  // after the first line
  } kCases[] = {
      {"warning", "<Root>\n<x>\n</Root>", "Warning: Unmatched end tag\nAt line 3, column 1.\n"},
      {"error", "<Root>\n &foo;</Root>", "Error: Unknown character entity\nAt line 2, column 2.\n"},
      {"wrong root", "<Top/>",
       "Error: First Tag not found\nAt line 1, column 7.\nFirst Tag should be 'Root'.\n"},
      {"empty", "", "Error: No XML data\nAt line 0, column 0.\n"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const std::string path = Write(row.content);
    const std::string message =
        "^XML Parsing error inside file '" + path + "'.\n" + row.message + "$";
    EXPECT_EXIT(OpenOrEnd(path), ExitedWithCode(255), message);
  }
}

TEST_F(XmlFileDeathTest, OpenFileHelperNamesTheSystemsError) {
  for (const auto& [name, reason] : {std::pair{"none.xml", ENOENT}, std::pair{"", EISDIR}}) {
    const std::string path = Path(name);
    const std::string message = "^error xmlParser " + std::string(std::strerror(reason)) +
                                "\nXML Parsing error inside file '" + path +
                                "'.\nError: File not found\nAt line 0, column 0.\n$";
    EXPECT_EXIT(OpenOrEnd(path), ExitedWithCode(255), message);
  }
}

TEST_F(XmlFileDeathTest, ExitHandlersRun) {
  const std::string path = Write("<x/>");
  const auto end = [&path] {
    std::atexit([] { std::fputs("handler ran", stderr); });
    OpenOrEnd(path);
  };
  EXPECT_EXIT(end(), ExitedWithCode(255), "'Root'.\nhandler ran");
}

}  // namespace
