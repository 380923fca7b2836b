// SPDX-License-Identifier: Apache-2.0
// What the reader makes of a text: the tree, or the error and its place.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "tests/util/xml_text.h"
#include "util/xmlParser.h"

namespace {

class XmlParse : public testing::Test {
 protected:
  ~XmlParse() override { XMLNode::setGlobalOptions(); }
};

struct AcceptCase {
  const char* name;
  const char* text;
  const char* tree;
};

void ExpectAccepted(const AcceptCase& row) {
  SCOPED_TRACE(row.name);
  XMLResults results = {kXmlNoElements, 7, 7};
  const XMLNode node = XMLNode::parseString(row.text, nullptr, &results);
  EXPECT_EQ(XmlText(node), row.tree);
  EXPECT_STREQ(XMLNode::getError(results.error), "No error");
  EXPECT_EQ(results.line, 0);
  EXPECT_EQ(results.column, 0);
}

constexpr AcceptCase kAccepted[] = {
    {"element", "<a></a>", "a()"},
    {"empty element", "<a/>", "a()"},
    {"end tag in other case", "<aBc></AbC>", "aBc()"},
    {"blanks in tags", "< a  >< b\t/></\na\r>", "a(b())"},
    {"more in an end tag", "<a><b></b c='>' <!-- > --> d = /></a\n<e>", "a(b())"},
    {"the end behind an end tag's name", "<a></a ", "a()"},
    {"name with colon, dot, slash", "<n:a.b/c/>", "n:a.b/c()"},
    {"nothing at all", "", "*()"},
    {"white space only", " \r\n\t ", "*()"},
    {"text only", "hello", "*('hello')"},
    {"two tops", "<a/><b/>", "*(a() b())"},
    {"text after the top", "<a/>x", "*(a() 'x')"},
    {"document order", "<a k='v'>s<b/>t<!--c-->u</a>", "a(@k=v 's' b() 't' {<!--|c|-->} 'u')"},

    {"declaration holds what follows", "<?xml version='1.0'?><a/>", "?xml(@version=1.0 a())"},
    {"declaration without quotes", "<?xml version=1.0?><a/>", "?xml(@version=1.0 a())"},
    {"declaration without attributes", "<?xml?><a/>", "?xml(a())"},
    {"two declarations", "<?xml?><?style x?><a/>", "?xml(?style(@x a()))"},
    {"declaration closed as an element", "<?xml/><a/>", "*(?xml() a())"},

    {"attributes", "<a b='1' c=\"2\" d=3 e f = 4 g/>", "a(@b=1 @c=2 @d=3 @e @f=4 @g)"},
    {"empty value", "<a b=''/>", "a(@b=)"},
    {"marks inside a value", "<a b='x>y</\"=/>'/>", "a(@b=x>y</\"=/>)"},
    {"values side by side", "<a b='1'c='2'/>", "a(@b=1 @c=2)"},
    {"white space in a value stays", "<a b=' 1 '/>", "a(@b= 1 )"},
    {"entities in values", "<a b='&lt;&#65;' c=&gt;x/>", "a(@b=<A @c=>x)"},

    {"text is trimmed", "<a> \t\r\n true \n</a>", "a('true')"},
    {"white space inside text stays", "<a>x \n y</a>", "a('x \n y')"},
    {"white space between elements goes", "<a> <b/> <c/> </a>", "a(b() c())"},
    {"quotes, equals, closes in text", "<a>it's = \"a > b\" /> 'x</a>",
     "a('it's = \"a > b\" /> 'x')"},
    {"entities", "<a>&amp;&lt;&gt;&quot;&apos;</a>", "a('&<>\"'')"},
    {"entities in any case", "<a>&AMP;&Lt;&gT;</a>", "a('&<>')"},
    {"decoded once", "<a>&amp;lt;</a>", "a('&lt;')"},
    {"numbers", "<a>&#65;&#x42;&#X4a;&#098;</a>", "a('ABJb')"},
    {"numbers keep their low byte", "<a>&#321;&#x100000041;</a>", "a('AA')"},
    {"numbers of high bytes", "<a>&#xE9;</a>", "a('\xE9')"},
    {"decoded blanks stay", "<a>&#32;x&#32;</a>", "a(' x ')"},

    {"character data is no text", "<a><![CDATA[<b>&foo;]] >]]></a>",
     "a({<![CDATA[|<b>&foo;]] >|]]>})"},
    {"comment", "<a><!-- <b> -> -- --></a>", "a({<!--| <b> -> -- |-->})"},
    {"document type", "<!doctype a><a/>", "*({<!DOCTYPE| a|>} a())"},
    {"preformatted", "<a><pre>1<2</PRE></a>", "a({<PRE>|1<2|</PRE>})"},
    {"script", "<a><SCRIPT>if (a<b)</Script></a>", "a({<Script>|if (a<b)|</Script>})"},
    {"script with an attribute is an element", "<a><script x=1></script></a>", "a(script(@x=1))"},
};

TEST_F(XmlParse, Accepts) {
  for (const AcceptCase& row : kAccepted) ExpectAccepted(row);
}

TEST_F(XmlParse, KeepsWhiteSpaceOnRequest) {
  XMLNode::setGlobalOptions(1, 1, 0);
  ExpectAccepted({"all of it", "<a> <b>\n x </b></a>", "a(' ' b('\n x '))"});
}

// A lead byte takes the bytes that it announces, even marks; read as single bytes it does not.
TEST_F(XmlParse, StrictUtf8StepsOverSequences) {
  ExpectAccepted({"two bytes", "<a>\xC3</b></a>", "a('\xC3</b>')"});
  ExpectAccepted({"three bytes", "<a b='\xE0'> '/>", "a(@b=\xE0'> )"});
  ExpectAccepted({"four bytes", "<a\xF4/> />", "a\xF4/> ()"});
  ExpectAccepted(
      {"no lead bytes", "<a>\xC1<b/>\xF5<c/>\x80</a>", "a('\xC1' b() '\xF5' c() '\x80')"});
  ExpectAccepted({"cut short by the end", "x\xF0\x9F", "*('x\xF0\x9F')"});
  XMLNode::setGlobalOptions(1, 0, 1);
  ExpectAccepted({"single bytes", "<a b='\xE0'>\xC3</a>", "a(@b=\xE0 '\xC3')"});
}

struct RejectCase {
  const char* name;
  const char* text;
  XMLError error;
  int line;
  int column;
};

void ExpectRejected(const RejectCase& row, const char* tag = nullptr) {
  SCOPED_TRACE(row.name);
  XMLResults results;
  const XMLNode node = XMLNode::parseString(row.text, tag, &results);
  EXPECT_STREQ(XMLNode::getError(results.error), XMLNode::getError(row.error));
  EXPECT_EQ(results.line, row.line);
  EXPECT_EQ(results.column, row.column);
  EXPECT_EQ(node.isEmpty(), row.error > kXmlUnmatchedEndTagWarning);
}

constexpr RejectCase kRejected[] = {
    {"no text", nullptr, kXmlNoElements, 0, 0},
    {"no name", "<a>\n< ></a>", kXmlMissingTagName, 2, 3},
    {"name in quotes", "<'a'/>", kXmlMissingTagName, 1, 2},
    {"no name at the end", "<a><", kXmlMissingTagName, 1, 5},
    {"declaration without name", "<? ?>", kXmlMissingTagName, 1, 4},
    {"end tag without name", "<a></>", kXmlMissingEndTagName, 1, 6},
    {"end tag cut before its name", "<a></", kXmlMissingEndTagName, 1, 6},
    {"end tag closed as an element", "<a></a/>", kXmlUnmatchedEndTag, 1, 4},
    {"end tag with a value", "<a></a=b>", kXmlUnmatchedEndTag, 1, 4},
    {"end tag cut by a tag", "<a><b></b</a>", kXmlUnmatchedEndTag, 1, 7},
    {"end tag cut by the end", "<a></a", kXmlUnmatchedEndTag, 1, 4},
    {"quote without partner", "<a b='1></a>", kXmlUnmatchedQuote, 1, 6},
    {"quote without partner for a name", "<a \"/>", kXmlUnmatchedQuote, 1, 4},
    {"quote without partner for a tag", "<'a>", kXmlUnmatchedQuote, 1, 2},
    {"quote without partner for a closed tag", "<a></\"a>", kXmlUnmatchedQuote, 1, 6},
    {"quote without partner in an end tag", "<a></a b 'c>", kXmlUnmatchedQuote, 1, 10},
    {"section left open for a tag", "< <!-- ->", kXmlUnmatchedClearTagEnd, 1, 3},
    {"section left open for a name", "<a <!-- ->", kXmlUnmatchedClearTagEnd, 1, 4},
    {"section left open for a value", "<a b=<pre>", kXmlUnmatchedClearTagEnd, 1, 6},
    {"section left open in a declaration", "<?a <!-- ?>", kXmlUnmatchedClearTagEnd, 1, 5},
    {"section left open for a closed tag", "<a></<!-- >", kXmlUnmatchedClearTagEnd, 1, 6},
    {"section left open in an end tag", "<a></a <!-- >", kXmlUnmatchedClearTagEnd, 1, 8},
    {"section for a closed tag", "<a></<!-- --> a>", kXmlMissingEndTagName, 1, 6},
    {"end tag of nothing, left open", "<a></b '>", kXmlUnmatchedEndTag, 1, 4},
    {"end tag of nothing", "<a>\n </b></a>", kXmlUnmatchedEndTag, 2, 2},
    {"end tag on top", "</a>", kXmlUnmatchedEndTag, 1, 1},
    {"end tag with half of the name", "<abc></ab>", kXmlUnmatchedEndTag, 1, 6},
    {"end tag with more of the name", "<abc></abcd>", kXmlUnmatchedEndTag, 1, 6},
    {"comment without end", "<a><!-- x --</a>", kXmlUnmatchedClearTagEnd, 1, 4},
    {"character data without end", "<![CDATA[ ]] >", kXmlUnmatchedClearTagEnd, 1, 1},
    {"closing mark in other case", "<a><PRE></pre></a>", kXmlUnmatchedClearTagEnd, 1, 4},
    {"equals without name", "<a ='1'/>", kXmlUnexpectedToken, 1, 4},
    {"quoted name", "<a 'b'/>", kXmlUnexpectedToken, 1, 4},
    {"no value", "<a b=/>", kXmlUnexpectedToken, 1, 6},
    {"two equals", "<a b==c/>", kXmlUnexpectedToken, 1, 6},
    {"tag inside a tag", "<a <b/></a>", kXmlUnexpectedToken, 1, 4},
    {"comment inside a tag", "<a <!-- x --> b='1'/>", kXmlUnexpectedToken, 1, 4},
    {"unknown entity", "<a>\n\n x&foo;</a>", kXmlUnknownEntity, 3, 3},
    {"bare ampersand", "<a>x & y</a>", kXmlUnknownEntity, 1, 6},
    {"entity without semicolon", "<a>&amp</a>", kXmlUnknownEntity, 1, 4},
    {"number without digits", "<a>&#;</a>", kXmlUnknownEntity, 1, 4},
    {"number with wrong digits", "<a>&#1a;</a>", kXmlUnknownEntity, 1, 4},
    {"number without end", "<a>&#x41", kXmlUnknownEntity, 1, 4},
    {"unknown entity in a value", "<a b='&c;'/>", kXmlUnknownEntity, 1, 7},
    {"columns count characters", "<a>\xC3\xA9\xE2\x82\xAC&x;</a>", kXmlUnknownEntity, 1, 6},
    {"an error after a warning", "<a><b></a></c>", kXmlUnmatchedEndTag, 1, 11},
};

TEST_F(XmlParse, Rejects) {
  for (const RejectCase& row : kRejected) ExpectRejected(row);
}

TEST_F(XmlParse, WarnsAndKeepsTheTree) {
  struct {
    RejectCase row;
    const char* tree;
  } const kCases[] = {
      {{"left open", "<a>\n<b>x</b>", kXmlUnmatchedEndTagWarning, 2, 9}, "a(b('x'))"},
      {{"left open in its start tag", "<a b='1' c", kXmlUnmatchedEndTagWarning, 1, 11},
       "a(@b=1 @c)"},
      {{"enclosing element closed", "<a><b><c>x</a>", kXmlUnmatchedEndTagWarning, 1, 11},
       "a(b(c('x')))"},
      {{"the first one counts", "<a><b></a><c>", kXmlUnmatchedEndTagWarning, 1, 7},
       "*(a(b()) c())"},
      {{"declaration inside", "<a><?b?><c/></a>", kXmlUnmatchedEndTagWarning, 1, 13}, "a(?b(c()))"},
  };
  for (const auto& [row, tree] : kCases) {
    ExpectRejected(row);
    EXPECT_EQ(XmlText(XMLNode::parseString(row.text)), tree);
  }
}

TEST_F(XmlParse, FindsTheTag) {
  struct {
    const char* name;
    const char* text;
    const char* tree;  // null when the tag a must not be found
  } const kCases[] = {
      {"the only element", "<a><x/></a>", "a(x())"},
      {"in other case", "<A/>", "A()"},
      {"after a declaration", "<?xml?><a/>", "a()"},
      {"after declaration, comment, document type", "<?xml?><!-- --><!DOCTYPE a><a/>", "a()"},
      {"after two declarations", "<?xml?><?b?><a/>", "a()"},
      {"after a comment", "<!-- --><a/>", "a()"},
      {"beside others", "<x/><a/><y/>", "a()"},
      {"one level down", "<x><a/></x>", "a()"},
      {"the first of two", "<a b=1/><a b=2/>", "a(@b=1)"},
      {"the declaration itself", "<?a?><x/>", "?a(x())"},
      {"two levels down", "<x><y><a/></y></x>", nullptr},
      {"longer name", "<ab/>", nullptr},
      {"shorter name", "<x/><aa/>", nullptr},
      {"no element", "a", nullptr},
      {"nothing", "", nullptr},
  };
  for (const auto& row : kCases) {
    if (row.tree == nullptr) {
      const int end = static_cast<int>(std::strlen(row.text)) + 1;
      ExpectRejected({row.name, row.text, kXmlFirstTagNotFound, 1, end}, "a");
    } else {
      EXPECT_EQ(XmlText(XMLNode::parseString(row.text, "a")), row.tree) << row.name;
    }
  }
  EXPECT_EQ(XmlText(XMLNode::parseString("<b/>", "")), "b()") << "an empty tag is none";
}

// A copy on the heap of exactly the text and its NUL, so that the sanitizer sees a byte too many.
XMLResults ParseCopy(const std::string& text) {
  const auto copy = std::make_unique<char[]>(text.size() + 1);
  text.copy(copy.get(), text.size());
  XMLResults results;
  const XMLNode node = XMLNode::parseString(copy.get(), nullptr, &results);
  EXPECT_EQ(node.isEmpty(), results.error > kXmlUnmatchedEndTagWarning) << text;
  return results;
}

TEST_F(XmlParse, SurvivesEveryCutAndEveryFlip) {
  const std::string document =
      "<?xml version='1.0'?><!DOCTYPE a><a b=\"\xC3\xA9\" c=d e><!-- f --><g>h &amp; &#x41;</g>"
      "<![CDATA[i]]><Script>j</Script><k/></a>";
  ASSERT_EQ(ParseCopy(document).error, kXmlNone);
  for (std::size_t cut = 0; cut < document.size(); ++cut) ParseCopy(document.substr(0, cut));
  for (std::size_t i = 0; i < document.size(); ++i) {
    std::string flipped = document;
    for (const char byte : {'<', '>', '/', '?', '=', '"', '&', '!', ' ', '\0', '\xF4'}) {
      flipped[i] = byte;
      ParseCopy(flipped);
    }
  }
}

TEST_F(XmlParse, DepthCostsNoStack) {
  constexpr int kDepth = 300000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) text += "<a>";
  EXPECT_EQ(ParseCopy(text).error, kXmlUnmatchedEndTagWarning);
  for (int i = 0; i < kDepth; ++i) text += "</a>";
  EXPECT_EQ(ParseCopy(text).error, kXmlNone);
}

}  // namespace
