// Unicode, word splitting and names: worked examples, and the scanners against the patterns they
// stand for.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "retrieval/query/names.hpp"
#include "retrieval/query/unicode.hpp"
#include "retrieval/query/words.hpp"

namespace retrieval {
namespace {

using Words = std::vector<std::string>;
using Table = std::vector<std::pair<std::string, std::string>>;

std::string joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += text.empty() ? word : " " + word;
  return text;
}

TEST(Unicode, LowersWithTheFullMappingAndKeepsIllFormedBytes) {
  const Table cases{{"PARSER_2 ÀÉ Ж", "parser_2 àé ж"},
                    {"ΟΔΟΣ ΣΑΣ Σ", "οδος σας σ"},  // a sigma that ends a word is another letter
                    {"İẞ", "i\u0307ß"},            // one character becomes two
                    {"\xED\xA0\x80Ä", "\xED\xA0\x80ä"},  // a lone surrogate
                    {"Ä\xFF\xC3", "ä\xFF\xC3"},  // never a byte of UTF-8, and a cut-off letter
                    {"ΑΣ\xFFΑ", "ας\xFFα"},      // no mapping looks across ill-formed bytes
                    {std::string("A\0É", 4), std::string("a\0é", 4)}};
  for (const auto& [text, lower] : cases) EXPECT_EQ(unicode::lower_case(text), lower) << text;
}

TEST(Unicode, ChangesTheFirstCharacterOnly) {
  const std::vector<std::array<std::string, 3>> cases{{"", "", ""},
                                                      {"the MODEL", "The MODEL", "the MODEL"},
                                                      {"Éa É", "Éa É", "éa É"},
                                                      {"ßa", "SSa", "ßa"},
                                                      {"\xFFÄ", "\xFFÄ", "\xFFÄ"}};
  for (const auto& [text, upper, lower] : cases) {
    EXPECT_EQ(unicode::with_upper_first(text), upper);
    EXPECT_EQ(unicode::with_lower_first(text), lower);
  }
}

TEST(Unicode, StripsWhiteSpaceAndCountsCodePoints) {
  EXPECT_EQ(unicode::strip("\t\x1C\u0085\u00A0\u2028 a \u3000b\u2003\r\n"), "a \u3000b");
  EXPECT_EQ(unicode::strip(" \u2000\v"), "");
  EXPECT_EQ(unicode::strip("\u200B a\xE3\x80"), "\u200B a\xE3\x80") << "no white space";
  EXPECT_EQ(unicode::length("aé€😀\xED\xA0\x80"), 5U);
}

TEST(Words, AreSplitOutOfIdentifiers) {
  const Table cases{{"getHTTPResponse_v2", "get http response v 2"},
                    {"XMLHttpRequest", "xml http request"},
                    {"src/x-news.ts", "src x news ts"},
                    {"ABCDef ABCdef", "abc def ab cdef"},
                    {"IPv6Address", "i pv 6 address"},
                    {"café naïve ٣", "caf na ve"},
                    {"Foo foo", "foo foo"}};
  for (const auto& [text, words] : cases) EXPECT_EQ(joined(split_identifier(text)), words) << text;
}

TEST(Words, LoseStopWordsAndInAQuestionRepeats) {
  const std::string text = "How does build_context_pack work? The Work isn't a pack2!";
  EXPECT_EQ(joined(query_terms(text)), "build context pack work isn 2");
  EXPECT_EQ(_index_text(text), "build context pack work work isn pack 2");
  EXPECT_EQ(_index_text(std::nullopt), "");
  EXPECT_EQ(query_terms("how does it"), Words{});
  EXPECT_EQ(STOP_WORDS.size(), 138U);
  EXPECT_TRUE(std::ranges::all_of(STOP_WORDS, [](auto word) { return STOP_WORDS.contains(word); }));
}

TEST(Words, TellAQuestionAboutTests) {
  for (const auto* query : {"TestSuite", "test_utils", "pytest fixtures for the parser", "specs"}) {
    EXPECT_TRUE(is_test_query(query_terms(query))) << query;
  }
  for (const auto* query : {"testimony", "latest", "", "the"}) {
    EXPECT_FALSE(is_test_query(query_terms(query))) << query;
  }
}

TEST(Names, ReadAsCodeByTheirSpelling) {
  for (const auto* word : {"effective_action", "$scope", "x2", "getHTTPResponse", "HTTPServer",
                           "iOS", "Offloader", "x٣", "x²", "Éa"}) {
    EXPECT_TRUE(reads_as_code(word)) << word;
  }
  for (const auto* word : {"X", "PDF", "HTTPS", "music", "", "É", "éÀ", "A\xFF"}) {
    EXPECT_FALSE(reads_as_code(word)) << word;
  }
}

TEST(Names, OfAQuestionStayWhole) {
  const Table cases{{"How does build_context_pack work?", "build_context_pack work"},
                    {"$scope.apply()", "$scope apply"},
                    {"what is X", "X"},
                    {"then", "then"},
                    {"then then", ""},
                    {"Foo foo Foo", "Foo foo"},
                    {"2fast4you", "fast4you"},
                    {"café au lait", "caf au lait"},
                    {"...", ""}};
  for (const auto& [query, names] : cases) EXPECT_EQ(joined(query_names(query)), names) << query;
}

// A pattern in the plainest form: ordered alternatives, each a sequence of greedy repetitions.
const std::string kUpper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string kLower = "abcdefghijklmnopqrstuvwxyz";
const std::string kDigit = "0123456789";
constexpr std::size_t kMany = 1000;

struct Item {
  std::string characters;
  std::size_t least;
  std::size_t most;
  bool ends_match = false;  // what follows is looked at and not consumed
};
using Pattern = std::vector<std::vector<Item>>;

const Pattern kWordPattern{{{kUpper, 1, kMany}, {"", 0, 0, true}, {kUpper, 1, 1}, {kLower, 1, 1}},
                           {{kUpper, 0, 1}, {kLower, 1, kMany}},
                           {{kUpper, 1, kMany}},
                           {{kDigit, 1, kMany}}};
const Pattern kNamePattern{
    {{kUpper + kLower + "_$", 1, 1}, {kUpper + kLower + kDigit + "_$", 0, kMany}}};
const Pattern kMixedCasePattern{{{kLower + kDigit, 1, 1}, {kUpper, 1, 1}},
                                {{kUpper, 2, 2}, {kLower, 1, 1}}};

// Tries every repetition, longest first.
std::optional<std::size_t> end_of_match(std::string_view text, std::size_t at,
                                        std::span<const Item> items) {
  if (items.empty()) return at;
  const Item& item = items.front();
  if (item.ends_match) {
    return end_of_match(text, at, items.subspan(1)) ? std::optional(at) : std::nullopt;
  }
  std::size_t most = 0;
  while (most < item.most && at + most < text.size() &&
         item.characters.find(text[at + most]) != std::string::npos) {
    ++most;
  }
  for (std::size_t taken = most + 1; taken-- > item.least;) {
    if (const auto end = end_of_match(text, at + taken, items.subspan(1))) return end;
  }
  return std::nullopt;
}

Words all_matches(const Pattern& pattern, std::string_view text) {
  Words matches;
  for (std::size_t at = 0; at < text.size();) {
    std::optional<std::size_t> end;
    for (auto way = pattern.begin(); !end && way != pattern.end(); ++way) {
      end = end_of_match(text, at, *way);
    }
    if (end) matches.emplace_back(text.substr(at, *end - at));
    at = end.value_or(at + 1);
  }
  return matches;
}

std::string ascii_lower(std::string text) {
  for (char& c : text) {
    if (const std::size_t at = kUpper.find(c); at != std::string::npos) c = kLower[at];
  }
  return text;
}

// Short texts of every class of character, the neighbours of the classes and any bytes.
template <typename Check>
void for_each_text(Check check) {
  const std::string likely = "aBzZC09_$ @[`{/:\xC3\xA9";
  std::mt19937 random(20240105);
  for (int round = 0; round < 30000; ++round) {
    const std::size_t kinds = random() % 2 == 0 ? 7 : likely.size();
    std::string text(random() % 14, ' ');
    for (char& c : text) {
      c = random() % 20 == 0 ? static_cast<char>(random()) : likely[random() % kinds];
    }
    check(text);
  }
}

TEST(Scanners, SplitWordsAsTheirPatternDoes) {
  for_each_text([](const std::string& text) {
    Words expected = all_matches(kWordPattern, text);
    for (std::string& word : expected) word = ascii_lower(word);
    ASSERT_EQ(split_identifier(text), expected) << text;
  });
}

TEST(Scanners, FindNamesAsTheirPatternsDo) {
  for_each_text([](const std::string& text) {
    const Words matches = all_matches(kNamePattern, text);
    Words expected;
    for (const std::string& name : matches) {
      const bool stop = matches.size() > 1 && STOP_WORDS.contains(ascii_lower(name));
      if (!stop && std::ranges::find(expected, name) == expected.end()) expected.push_back(name);
    }
    ASSERT_EQ(query_names(text), expected) << text;
    for (const std::string& name : matches) {
      const bool capitalised = name.size() > 1 && kUpper.find(name[0]) != std::string::npos &&
                               kLower.find(name[1]) != std::string::npos;
      const bool code = name.find_first_of("_$" + kDigit) != std::string::npos || capitalised ||
                        !all_matches(kMixedCasePattern, name).empty();
      ASSERT_EQ(reads_as_code(name), code) << name;
    }
  });
}

}  // namespace
}  // namespace retrieval
