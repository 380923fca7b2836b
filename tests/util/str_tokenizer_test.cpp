// SPDX-License-Identifier: Apache-2.0
#include "util/str_tokenizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using Texts = std::vector<std::string>;

Texts TokensOf(const StrTokenizer& tokenizer) {
  Texts tokens;
  for (unsigned long i = 0; i < tokenizer.GetCount(); ++i)
    tokens.emplace_back(tokenizer.GetToken(i));
  return tokens;
}

TEST(StrTokenizer, SplitsOrKeepsEmptyTokens) {
  struct {
    const char* text;
    Texts split;
    Texts exact;
  } const kCases[] = {
      {"a,,b,", {"a", "b"}, {"a", "", "b", ""}},
      {",a", {"a"}, {"", "a"}},
      {"", {}, {""}},
      {",,", {}, {"", "", ""}},
      {"alone", {"alone"}, {"alone"}},
      {" a, b", {" a", " b"}, {" a", " b"}},
      {nullptr, {}, {""}},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
    EXPECT_THAT(TokensOf({row.text, ','}), ElementsAreArray(row.split));
    EXPECT_THAT(TokensOf({row.text, ","}), ElementsAreArray(row.split));
    EXPECT_THAT(TokensOf({row.text, ',', 1}), ElementsAreArray(row.exact));
  }
}

TEST(StrTokenizer, AnyCharacterOfTheSetSeparates) {
  EXPECT_THAT(TokensOf({"a;b, c", ",; "}), ElementsAre("a", "b", "c"));
  EXPECT_THAT(TokensOf({"a;b", ""}), ElementsAre("a;b"));
  EXPECT_THAT(TokensOf({"a;b", static_cast<const char*>(nullptr)}), ElementsAre("a;b"));
}

TEST(StrTokenizer, LengthFormReadsNoFurther) {
  const std::vector<char> text = {'a', 'b', ',', 'c'};  // exactly these bytes, no NUL
  EXPECT_THAT(TokensOf({text.data(), text.size(), ","}), ElementsAre("ab", "c"));
  EXPECT_THAT(TokensOf({text.data(), 3, ","}), ElementsAre("ab"));
  EXPECT_THAT(TokensOf({text.data(), 0, ","}), ElementsAre());
}

TEST(StrTokenizer, LengthsRunToTheNextToken) {
  const StrTokenizer plain("ab,c", ',');
  EXPECT_EQ(plain.GetTokenLen(0), 3U) << "separator included";
  EXPECT_EQ(plain.GetTokenLen(1), 1U);
  EXPECT_EQ(plain.GetTokenLen(2), 0U);
  EXPECT_EQ(plain.GetToken(2), nullptr);

  const StrTokenizer padded(",a,,b,,", ',');
  EXPECT_EQ(padded.GetTokenLen(0), 3U);
  EXPECT_EQ(padded.GetTokenLen(1), 3U) << "the last one runs to the end of the text";
}

TEST(StrTokenizer, LastToken) {
  EXPECT_STREQ(StrTokenizer("a,b", ',').LastToken(), "b");
  EXPECT_STREQ(StrTokenizer("a,", ',', 1).LastToken(), "");
  EXPECT_THROW(static_cast<void>(StrTokenizer(",", ',').LastToken()), std::out_of_range);
}

TEST(StrTokenizer, CopyOutlivesTheOriginal) {
  auto original = std::make_unique<StrTokenizer>("a,b", ",");
  const StrTokenizer copy(*original);
  EXPECT_NE(copy.GetToken(0), original->GetToken(0));
  original.reset();
  EXPECT_THAT(TokensOf(copy), ElementsAre("a", "b"));
  EXPECT_EQ(copy.GetTokenLen(1), 1U);
}

}  // namespace
