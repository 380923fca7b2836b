// SPDX-License-Identifier: Apache-2.0
#include "host/ask/filter.h"

#include <fmt/format.h>

#include <tao/pegtl.hpp>
#include <tao/pegtl/contrib/limit_depth.hpp>
#include <tao/pegtl/contrib/parse_tree.hpp>

#include <algorithm>
#include <iterator>
#include <span>
#include <type_traits>
#include <utility>

#include "host/ask/filter_words.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

namespace pegtl = tao::pegtl;

// Deeper ones are nobody's question, and stacks have an end: ours while reading parentheses, and
// that of SQLite's parser, which holds 100 words, up to six of them a level of and, or and not.
constexpr std::size_t kMostDepth = 100;
constexpr std::size_t kMostLevels = 10;
constexpr std::size_t kMostLength = 8192;

constexpr std::string_view kTooDeep = "this is nested too deeply";

namespace grammar {

using namespace tao::pegtl;

struct WordCharacter : sor<alnum, one<'.', ':', '/', '-', '_', '+', '[', ']', '%'>> {};
template <class Rule>
struct Keyword : seq<Rule, not_at<WordCharacter>> {};
struct Gap : star<space> {};

struct AndMark : sor<Keyword<TAO_PEGTL_ISTRING("and")>, TAO_PEGTL_STRING("&&")> {};
struct OrMark : sor<Keyword<TAO_PEGTL_ISTRING("or")>, TAO_PEGTL_STRING("||")> {};
struct NotMark : sor<Keyword<TAO_PEGTL_ISTRING("not")>, one<'!'>> {};
struct Reserved : sor<AndMark, OrMark, NotMark> {};

struct SourceWord : sor<Keyword<TAO_PEGTL_ISTRING("src")>, Keyword<TAO_PEGTL_ISTRING("source")>> {};
struct DestinationWord
    : sor<Keyword<TAO_PEGTL_ISTRING("dst")>, Keyword<TAO_PEGTL_ISTRING("destination")>> {};
struct EitherEnd : seq<SourceWord, Gap, OrMark, Gap, DestinationWord> {};
struct BothEnds : seq<SourceWord, Gap, AndMark, Gap, DestinationWord> {};
struct SourceEnd : SourceWord {};
struct DestinationEnd : DestinationWord {};
struct InEnd : Keyword<TAO_PEGTL_ISTRING("in")> {};
struct OutEnd : Keyword<TAO_PEGTL_ISTRING("out")> {};
struct End : sor<EitherEnd, BothEnds, SourceEnd, DestinationEnd, InEnd, OutEnd> {};
struct WayEnd : sor<InEnd, OutEnd> {};

struct Sign : sor<TAO_PEGTL_STRING("<="), TAO_PEGTL_STRING(">="), TAO_PEGTL_STRING("!="),
                  TAO_PEGTL_STRING("=="), one<'<', '>', '='>> {};
struct Word : seq<not_at<Reserved>, plus<WordCharacter>> {};
struct Quoted : sor<seq<one<'"'>, until<one<'"'>>>, seq<one<'\''>, until<one<'\''>>>> {};
struct Value : sor<Quoted, plus<WordCharacter>> {};
struct ListedValue : Value {};
struct FirstValue
    : seq<not_at<
              sor<Reserved, Keyword<TAO_PEGTL_ISTRING("in")>, Keyword<TAO_PEGTL_ISTRING("out")>>>,
          Value> {};
struct Values : seq<FirstValue, star<Gap, one<','>, Gap, must<ListedValue>>> {};

// Of these a condition can be made by itself, and another can follow without "and".
struct ShortWord : sor<Keyword<TAO_PEGTL_ISTRING("tcp")>, Keyword<TAO_PEGTL_ISTRING("udp")>,
                       Keyword<TAO_PEGTL_ISTRING("icmp")>, Keyword<TAO_PEGTL_ISTRING("icmp6")>,
                       Keyword<TAO_PEGTL_ISTRING("sctp")>, Keyword<TAO_PEGTL_ISTRING("gre")>,
                       Keyword<TAO_PEGTL_ISTRING("esp")>, Keyword<TAO_PEGTL_ISTRING("ipv4")>,
                       Keyword<TAO_PEGTL_ISTRING("ipv6")>> {};
struct FullCondition : seq<sor<if_must<End, Gap, Word>, Word>, Gap,
                           sor<if_must<Sign, Gap, Values>, opt<Values>>, opt<Gap, WayEnd>> {};
struct Condition;
struct ShortCondition : seq<ShortWord, opt<plus<space>, not_at<Reserved>, Condition>> {};
struct Condition : sor<ShortCondition, FullCondition> {};

struct Either;
struct Close : one<')'> {};
struct Group : if_must<one<'('>, Gap, Either, Gap, Close> {};
struct Negation;
struct Term : sor<Negation, Group, Condition> {};
struct Negation : if_must<NotMark, Gap, Term> {};
struct Both : list_must<Term, AndMark, space> {};
struct Either : list_must<Both, OrMark, space> {};
struct Filter : seq<Gap, sor<eof, must<Either, Gap, eof>>> {};

template <class Rule>
using Selector = parse_tree::selector<
    Rule, parse_tree::store_content::on<EitherEnd, BothEnds, SourceEnd, DestinationEnd, InEnd,
                                        OutEnd, Sign, Word, FirstValue, ListedValue, ShortWord,
                                        FullCondition, ShortCondition, Negation, Both, Either>>;

template <class Rule>
struct Action {};
template <>
struct Action<Term> : limit_depth<kMostDepth> {};
template <>
struct Action<Condition> : limit_depth<kMostDepth> {};

// What could stand where a rule had to match and did not.
template <class Rule>
constexpr std::string_view kExpected = "a condition such as host 10.0.0.5 or dst port 443";
template <>
constexpr std::string_view kExpected<Close> = "and, or or )";
template <>
constexpr std::string_view kExpected<eof> = "and, or, or the end";
template <>
constexpr std::string_view kExpected<Values> = "a value";
template <>
constexpr std::string_view kExpected<ListedValue> = "a value";
template <>
constexpr std::string_view kExpected<Word> = "host, net, port, as, mac or an address";

struct Stuck {
  std::size_t offset;
  std::string_view expected;
  bool wants_operator;
};

template <class Rule>
struct Control : normal<Rule> {
  template <class Input, class... States>
  [[noreturn]] static void raise(const Input& in, States&&... /*states*/) {
    throw Stuck{in.position().byte, kExpected<Rule>,
                std::is_same_v<Rule, Close> || std::is_same_v<Rule, eof>};
  }
};

}  // namespace grammar

using Node = pegtl::parse_tree::node;

// From the tree of texts to that of conditions.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  [[nodiscard]] Expression Read(const Node& node) const {
    return ReadBelow(Expression::Kind::kCondition, 0, node);
  }

 private:
  // Parts of a kind that is their parent's too become its own, and are no level: "a and (b and c)".
  [[nodiscard]] Expression ReadBelow(Expression::Kind parent, std::size_t level,
                                     const Node& node) const {
    if (node.is_type<grammar::FullCondition>()) return ReadCondition(node);
    const bool is_short = node.is_type<grammar::ShortCondition>();
    const bool is_not = node.is_type<grammar::Negation>();
    Expression made;
    if (is_short) {
      const std::string_view word = Text(*node.children[0]);
      made.parts.push_back({Expression::Kind::kCondition, *ParseShortWord(word), {}});
    }
    if (!is_not && node.children.size() == 1) {
      return is_short ? Expression(std::move(made.parts.front()))
                      : ReadBelow(parent, level, *node.children.front());
    }
    if (node.is_type<grammar::Either>()) made.kind = Expression::Kind::kOr;
    if (is_not) made.kind = Expression::Kind::kNot;
    if (is_not || made.kind != parent) ++level;
    if (level > kMostLevels) {
      Fail(node, kTooDeep, fmt::format("at most {} levels of and, or and not", kMostLevels));
    }
    for (const auto& child : std::span(node.children).subspan(is_short ? 1 : 0)) {
      Expression part = ReadBelow(made.kind, level, *child);
      if (is_not || part.kind != made.kind) {
        made.parts.push_back(std::move(part));
      } else {
        std::ranges::move(part.parts, std::back_inserter(made.parts));
      }
    }
    return made;
  }

  static std::string_view Text(const Node& node) { return node.string_view(); }

  static std::string_view Unquoted(std::string_view text) {
    const bool is_quoted = text.front() == '"' || text.front() == '\'';
    return is_quoted ? text.substr(1, text.size() - 2) : text;
  }

  static bool IsOneNumber(const FilterValue& value) {
    const NumberRange* const range = std::get_if<NumberRange>(&value);
    return range != nullptr && range->first == range->last;
  }

  [[noreturn]] void Fail(const Node& node, std::string_view wrong,
                         std::string_view expected) const {
    throw FilterError(text_, {node.begin().byte, Text(node).size()}, std::string(wrong),
                      std::string(expected));
  }

  [[nodiscard]] Expression ReadCondition(const Node& node) const {
    Parts parts;
    for (const auto& child : node.children) Sort(*child, &parts);
    Expression made{Expression::Kind::kCondition, {}, {}};
    const FilterWord* const word = FindFilterWord(Text(*parts.word));
    if (word == nullptr) {
      made.condition = ReadLoneWord(parts);
    } else {
      made.condition.field = word->field;
      ReadComparison(*word, parts, &made.condition);
    }
    ReadEnd(word == nullptr ? FilterWord{} : *word, parts, &made.condition);
    return made;
  }

  // The texts of a condition; the word is always there.
  struct Parts {
    const Node* end = nullptr;
    bool is_way = false;  // in or out rather than src or dst
    Side side = Side::kEither;
    const Node* second_end = nullptr;
    const Node* word = nullptr;
    const Node* sign = nullptr;
    std::vector<const Node*> values;
  };

  static void Sort(const Node& node, Parts* parts) {
    if (node.is_type<grammar::Word>()) {
      parts->word = &node;
    } else if (node.is_type<grammar::Sign>()) {
      parts->sign = &node;
    } else if (node.is_type<grammar::FirstValue>() || node.is_type<grammar::ListedValue>()) {
      parts->values.push_back(&node);
    } else {
      if (parts->end != nullptr) parts->second_end = &node;
      parts->end = &node;
      const bool in = node.is_type<grammar::InEnd>();
      const bool out = node.is_type<grammar::OutEnd>();
      parts->is_way = in || out;
      if (in || node.is_type<grammar::SourceEnd>()) parts->side = Side::kSource;
      if (out || node.is_type<grammar::DestinationEnd>()) parts->side = Side::kDestination;
      if (node.is_type<grammar::BothEnds>()) parts->side = Side::kBoth;
    }
  }

  [[nodiscard]] Condition ReadLoneWord(const Parts& parts) const {
    const std::string_view word = Text(*parts.word);
    if (parts.values.empty()) {
      if (const auto address = ParseFilterValue(FilterField::kAddress, word)) {
        Condition condition;
        condition.values = {*address};
        return condition;
      }
      const auto condition = ParseShortWord(word);
      if (condition && parts.end == nullptr) return *condition;
    }
    Fail(*parts.word, fmt::format("there is no '{}' to ask for", Printable(word)),
         FilterWordList());
  }

  void ReadComparison(const FilterWord& word, const Parts& parts, Condition* condition) const {
    if (parts.values.empty()) {
      throw FilterError(text_, {parts.word->end().byte, 1},
                        fmt::format("'{}' needs a value", word.word), std::string(word.form));
    }
    if (parts.sign != nullptr) condition->comparison = ReadSign(word, parts);
    const bool has_order = condition->comparison > Comparison::kIsNot;
    for (const Node* const node : parts.values) {
      const auto value = ParseFilterValue(word.field, Unquoted(Text(*node)));
      if (!value) {
        Fail(*node, fmt::format("'{}' is no value of {}", Printable(Text(*node)), word.word),
             word.form);
      }
      if (has_order && (parts.values.size() > 1 || !IsOneNumber(*value))) {
        Fail(*node, fmt::format("'{}' takes one value", Text(*parts.sign)), word.form);
      }
      condition->values.push_back(*value);
    }
  }

  [[nodiscard]] Comparison ReadSign(const FilterWord& word, const Parts& parts) const {
    constexpr std::pair<std::string_view, Comparison> kSigns[] = {
        {"=", Comparison::kIs},      {"==", Comparison::kIs},  {"!=", Comparison::kIsNot},
        {"<=", Comparison::kAtMost}, {"<", Comparison::kLess}, {">=", Comparison::kAtLeast},
        {">", Comparison::kMore},
    };
    for (const auto& [text, comparison] : kSigns) {
      if (text != Text(*parts.sign)) continue;
      if (comparison <= Comparison::kIsNot || word.has_order) return comparison;
    }
    Fail(*parts.sign, fmt::format("{} has no order", word.word), "= or !=");
  }

  void ReadEnd(const FilterWord& word, const Parts& parts, Condition* condition) const {
    if (parts.end == nullptr) return;
    if (parts.second_end != nullptr) {
      Fail(*parts.second_end, "an end is named twice", "and, or, or the end");
    }
    const bool is_interface = condition->field == FilterField::kInterface;
    if (parts.is_way && !is_interface) {
      Fail(*parts.end, fmt::format("only interfaces are {}", Text(*parts.end)),
           "src or dst in front of host, net, port and as");
    }
    if (is_interface && !parts.is_way) {
      Fail(*parts.end, "an interface has no src and dst", "in or out");
    }
    if (!word.word.empty() && !word.has_ends) {
      Fail(*parts.end, fmt::format("{} has no src and dst", word.word),
           fmt::format("{} alone", word.word));
    }
    condition->side = parts.side;
  }

  std::string_view text_;
};

// The word at which the grammar was stuck: it and its length, nothing at the end.
std::string_view WordAt(std::string_view text, std::size_t offset) {
  text.remove_prefix(offset);
  return text.substr(0, text.find_first_of(" \t\n()"));
}

std::string WhatIsWrong(std::string_view text, const grammar::Stuck& stuck) {
  if (stuck.offset == text.size()) return "the filter ends too early";
  const std::string_view word = WordAt(text, stuck.offset);
  if (word.empty()) return fmt::format("no '{}' can stand here", text[stuck.offset]);
  return fmt::format("no {} '{}' here", stuck.wants_operator ? "operator" : "condition",
                     Printable(word));
}

std::string Drawing(std::string_view filter, FilterError::Place where, const std::string& wrong,
                    const std::string& expected) {
  // A byte a column, so that the mark stands where it should.
  std::string line;
  for (const char c : filter) line.push_back(c >= ' ' && c <= '~' ? c : '?');
  return fmt::format("{}\n  {}\n  {:{}}{} expected: {}", wrong, line, "", where.offset,
                     std::string(std::max<std::size_t>(where.length, 1), '^'), expected);
}

}  // namespace

FilterError::FilterError(std::string_view filter, Place where, const std::string& wrong,
                         const std::string& expected)
    : UsageError(Drawing(filter, where, wrong, expected)), place_(where) {}

Expression ParseFilter(std::string_view text) {
  if (text.size() > kMostLength) {
    throw FilterError("", {}, fmt::format("a filter of {} characters is too long", text.size()),
                      fmt::format("at most {}", kMostLength));
  }
  pegtl::memory_input in(text.data(), text.size(), "");
  try {
    const auto tree = pegtl::parse_tree::parse<grammar::Filter, Node, grammar::Selector,
                                               grammar::Action, grammar::Control>(in);
    if (tree == nullptr || tree->children.empty()) return {};
    return Reader(text).Read(*tree->children.front());
  } catch (const grammar::Stuck& stuck) {
    throw FilterError(text, {stuck.offset, WordAt(text, stuck.offset).size()},
                      WhatIsWrong(text, stuck), std::string(stuck.expected));
  } catch (const pegtl::parse_error& error) {
    throw FilterError(text, {error.positions().front().byte, 1}, std::string(kTooDeep),
                      fmt::format("at most {} levels of parentheses", kMostDepth));
  }
}

}  // namespace flow::host
