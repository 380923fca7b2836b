// SPDX-License-Identifier: Apache-2.0
// Strangers' texts in what programs read.
#include "host/base/printable.h"

#include <gtest/gtest.h>

#include "host/output/csv_field.h"
#include "host/output/json_texts.h"

namespace flow::host {
namespace {

TEST(Utf8, KeepsCharactersAndWritesTheRestInHex) {
  struct Row {
    std::string_view text;
    std::string_view shown;
  };
  for (const auto& [text, shown] : {
           Row{"plain", "plain"},
           {"Z\u00fcrich \u2192 \U0001F30D", "Z\u00fcrich \u2192 \U0001F30D"},
           {"a\x1b[2J\n\x7f", "a\\x1B[2J\\x0A\\x7F"},
           {"\xc2\x9b", "\\xC2\\x9B"},                    // C1, an escape in one character
           {"\xc0\xaf", "\\xC0\\xAF"},                    // a longer spelling
           {"\xed\xa0\x80", "\\xED\\xA0\\x80"},           // a surrogate
           {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},  // past the last character
           {"\xe2\x86", "\\xE2\\x86"},                    // cut off
           {"\xff\xc3\xa4", "\\xFF\u00e4"},
       }) {
    EXPECT_EQ(Utf8(text), shown);
  }
}

TEST(CsvField, RunsInNoSpreadsheet) {
  struct Row {
    const char* text;
    const char* field;
  };
  for (const auto& [text, field] : {
           Row{"=HYPERLINK(\"http://a\",\"b\")", "\"'=HYPERLINK(\"\"http://a\"\",\"\"b\"\")\""},
           {"+1+cmd", "'+1+cmd"},
           {"@SUM(A1)", "'@SUM(A1)"},
           {"-2+3", "'-2+3"},
           {"-12.5", "-12.5"},
           {"-", "-"},
           {"\t=1", "\\x09=1"},
           {"10.0.0.1", "10.0.0.1"},
       }) {
    EXPECT_EQ(CsvField(text), field);
  }
}

TEST(MakeUtf8, MendsValuesAndNames) {
  nlohmann::ordered_json value{{"a\xff", {"\x80", 1}}, {"b", "\x7f"}};
  MakeUtf8(&value);
  EXPECT_EQ(value.dump(), R"({"a\\xFF":["\\x80",1],"b":"\\x7F"})");
}

}  // namespace
}  // namespace flow::host
