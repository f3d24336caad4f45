// The ranking of the text tables against FTS5's own: rows, order and scores to the last bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <random>
#include <tuple>

#include "fakes.hpp"
#include "retrieval/corpus/text_tables.hpp"

namespace retrieval {
namespace {

using Random = std::mt19937;

const std::array<std::string, 14> kWords{"parse", "parser",  "parsing", "parses", "config",
                                         "a",     "configs", "running", "runs",   "run",
                                         "7",     "2024",    "xyz",     "abc"};

std::string words(Random& random, std::size_t most) {
  std::string text;
  for (std::size_t n = random() % (most + 1); n > 0; --n) {
    // Two spaces in a row stand for an empty entry.
    if (!text.empty()) text += random() % 8 == 0 ? "  " : " ";
    text += kWords[random() % kWords.size()];
  }
  return text;
}

std::vector<std::string> some_words(Random& random) {
  std::vector<std::string> terms{"nowhere", kWords[random() % kWords.size()]};
  for (std::size_t n = random() % 5; n > 0; --n) terms.push_back(kWords[random() % kWords.size()]);
  std::shuffle(terms.begin(), terms.end(), random);
  return terms;
}

// Tables of generated rows, ranked by either function.
struct Generated {
  std::vector<std::array<std::string, 4>> texts;
  std::vector<_SymbolRow> symbols;
  std::vector<_FileRow> files;

  explicit Generated(Random& random) : texts(random() % 60) {
    std::int64_t id = random() % 2 == 0 ? -5 : 0;
    const std::int64_t step = random() % 2 == 0 ? 1 : 1LL << 40;
    for (std::array<std::string, 4>& text : texts) {
      for (std::string& column : text) column = words(random, random() % 40 == 0 ? 3000 : 6);
      symbols.push_back({id += step, text[0], text[1], text[2], text[3]});
      files.push_back({static_cast<std::int64_t>(files.size() + 1), text[3], text[2], text[0]});
    }
    std::shuffle(symbols.begin(), symbols.end(), random);
  }
};

struct Ranked {
  std::vector<std::pair<std::int64_t, std::uint64_t>> rows;  // id and the score's bits
  std::string error;

  bool operator==(const Ranked&) const = default;
};

Ranked ranked(TextTables& tables, std::string_view table, const std::vector<std::string>& terms) {
  std::string expression;
  for (const std::string& term : terms) {
    expression += (expression.empty() ? "\"" : " OR \"") + term + "\"";
  }
  if (tables.bm25 != nullptr) {
    tables.bm25->begin(table == _SYMBOL_TABLE ? tables.bm25->symbols : tables.bm25->files, terms);
  }
  const std::string name(table);
  Statement query(tables.database,
                  "SELECT rowid, rank FROM " + name + " WHERE " + name + " MATCH ? ORDER BY rank");
  query.bind(1, expression);
  Ranked found;
  try {
    while (query.step()) {
      found.rows.emplace_back(query.integer(0), std::bit_cast<std::uint64_t>(query.number(1)));
    }
  } catch (const SqliteError& error) {
    found.error = error.what();  // a word that is several tokens
  }
  return found;
}

class Ranking : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(Ranking, GivesEveryRowTheRankOfTheBuiltInFunction) {
  const auto [tokenizer, is_own] = GetParam();
  Random random(7);
  fakes::Lines log;
  const std::array<LexicalWeights, 4> weights{
      {{}, {0.1, 0.7, 1.3, 2.25}, {-1.5, 0, 3, 0.3}, {1, 1000000, 2, 3}}};
  for (int round = 0; round < 60; ++round) {
    const Generated rows(random);
    RetrievalSettings settings{.weights = weights[random() % weights.size()],
                               .tokenizer = tokenizer};
    settings.file_weights.names = random() % 2 == 0 ? 0.3 : 3;
    const auto own = _text_tables(settings, rows.symbols, rows.files, log);
    const auto built_in =
        _text_tables(settings, rows.symbols, rows.files, log, RankFunction::kBuiltIn);
    ASSERT_EQ(own->bm25 != nullptr, is_own);
    for (int question = 0; question < 8; ++question) {
      const std::vector<std::string> terms = some_words(random);
      for (const std::string_view table : {_SYMBOL_TABLE, _FILE_TABLE}) {
        const std::int64_t before = is_own ? own->bm25->rows_ranked() : 0;
        const Ranked expected = ranked(*built_in, table, terms);
        ASSERT_EQ(ranked(*own, table, terms), expected) << round << " " << question;
        // No row is left to the built-in function: each is ranked once to sort it, once to show it.
        if (is_own) {
          EXPECT_EQ(own->bm25->rows_ranked() - before, 2 * std::ssize(expected.rows));
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Tokenizers, Ranking,
                         testing::Values(std::tuple("porter unicode61", true),
                                         std::tuple("unicode61", true), std::tuple("ascii", true),
                                         std::tuple("porter ascii", true),
                                         std::tuple("porter", true),
                                         std::tuple("unicode61 remove_diacritics 2", true),
                                         std::tuple("unicode61 separators rs", false)));

TEST(Ranking, LeavesATokenizerThatLooksAcrossWordsToTheBuiltInFunction) {
  fakes::Lines log;
  const std::vector<_SymbolRow> symbols{{1, "abc", "", "xabcx abc", ""}, {2, "xyz", "abc", "", ""}};
  const RetrievalSettings settings{.tokenizer = "trigram"};
  const auto own = _text_tables(settings, symbols, {}, log);
  const auto built_in = _text_tables(settings, symbols, {}, log, RankFunction::kBuiltIn);
  EXPECT_EQ(own->bm25, nullptr);
  EXPECT_EQ(ranked(*own, _SYMBOL_TABLE, {"abc"}), ranked(*built_in, _SYMBOL_TABLE, {"abc"}));
}

}  // namespace
}  // namespace retrieval
