// The in-memory text tables, and the snapshot that is built around them.
#include <gtest/gtest.h>

#include <future>

#include "fakes.hpp"
#include "retrieval/corpus/text_tables.hpp"

namespace retrieval {
namespace {

using Ids = std::vector<SymbolId>;

// Text tables over three symbols and two files.
class Tables : public testing::Test {
 protected:
  auto make(const RetrievalSettings& settings = {}) {
    const std::vector<_SymbolRow> symbols{{1, "debounce input", "", "src ui", "waits near"},
                                          {-7, "wait", "debounce", "src ui", ""},
                                          {1LL << 62, "parse", "", "src config", "debounce"}};
    const std::vector<_FileRow> files{{1, "debounce input wait", "src ui", "waits near"},
                                      {2, "parse", "src config", "debounce"}};
    return _text_tables(settings, symbols, files, log);
  }

  template <typename Fts>
  Ids search(Fts& fts, std::string_view table, const std::vector<std::string>& terms) {
    Ids rows;
    _Matching matching = _matching(fts, lock, table, terms);
    while (const auto row = matching.next()) rows.push_back(*row);
    return rows;
  }

  bool is_free() {
    return std::async(std::launch::async, [&] { return std::unique_lock(lock, std::try_to_lock); })
        .get()
        .owns_lock();
  }

  fakes::Lines log;
  std::mutex lock;
};

TEST_F(Tables, FindInflectionsBestColumnFirst) {
  const auto fts = make();
  EXPECT_EQ(search(*fts, _SYMBOL_TABLE, {"debounced"}), (Ids{1, -7, 1LL << 62}));
  EXPECT_EQ(search(*fts, _FILE_TABLE, {"debouncing"}), (Ids{1, 2}));
  EXPECT_EQ(search(*fts, _SYMBOL_TABLE, {"absent", "parses"}), (Ids{1LL << 62}));
  EXPECT_EQ(log.all(), std::vector<std::string>{});
}

TEST_F(Tables, RankByTheWeightsGiven) {
  const auto fts = make({.weights = {.name = 0.5, .signature = 1, .path = 1, .docstring = 100.25}});
  EXPECT_EQ(search(*fts, _SYMBOL_TABLE, {"debounce"}), (Ids{1LL << 62, -7, 1}));
}

TEST_F(Tables, TakeOperatorsForWords) {
  const auto fts = make();
  EXPECT_EQ(search(*fts, _SYMBOL_TABLE, {"near"}), Ids{1});
  EXPECT_EQ(search(*fts, _SYMBOL_TABLE, {"not", "and", "or"}), Ids{});
}

TEST_F(Tables, AreLockedUntilTheSearchEndsHoweverItEnds) {
  const auto fts = make();
  const std::vector<std::string> terms{"debounce"};
  {
    _Matching matching = _matching(*fts, lock, _SYMBOL_TABLE, terms);
    EXPECT_TRUE(matching.next());
    EXPECT_FALSE(is_free());
  }
  EXPECT_TRUE(is_free()) << "after a search that stopped early";
  EXPECT_THROW(search(*fts, "missing", terms), SqliteError);
  EXPECT_TRUE(is_free()) << "after a search that failed";
}

TEST_F(Tables, AreAbsentWithOneWarningWhenTheTokenizerIsUnknown) {
  EXPECT_EQ(make({.tokenizer = "no_such"}), nullptr);
  EXPECT_EQ(log.all(), std::vector<std::string>{
                           "warning This SQLite has no FTS5: retrieval ranks without text; "
                           "no such tokenizer: no_such"});
}

TEST_F(Tables, FailWhenSqliteRefusesTheRankOption) {
  const std::int64_t used = sqlite3_memory_used();
  EXPECT_THROW(make({.weights = {.name = 1e-5}}), SqliteError) << "exponents are no FTS5 numbers";
  EXPECT_EQ(sqlite3_memory_used(), used) << "nothing is left behind";
  EXPECT_EQ(log.all(), std::vector<std::string>{});
}

// The ids of a lower-cased name.
Ids named(const _Corpus& corpus, std::string_view name) {
  const auto ids = corpus.by_name.ids_of(name);
  return {ids.begin(), ids.end()};
}

TEST(Snapshot, ListsTheSymbolsOfANameByKindPathAndId) {
  const auto corpus = fakes::snapshot({fakes::symbol(9, "PARSER", "a.py", {}, "constant"),
                                       fakes::symbol(4, "parser", "b.py", {}, "function"),
                                       fakes::symbol(3, "parser", "b.py", {}, "function"),
                                       fakes::symbol(8, "parser", "a.py", {}, "module"),
                                       fakes::symbol(7, "Parser", "b.py", {}, "class"),
                                       fakes::symbol(1, "ΟΔΟΣ", "b.py", {}, "class")});
  EXPECT_EQ(named(*corpus, "parser"), (Ids{7, 8, 3, 4, 9}));
  EXPECT_EQ(named(*corpus, "οδος"), Ids{1});
  EXPECT_EQ(named(*corpus, "Parser"), Ids{});
}

TEST(Snapshot, NumbersFilesByTheirFirstSymbolAndKnowsTheTestsAmongThem) {
  const auto corpus =
      fakes::snapshot({fakes::symbol(5, "a", "z.cpp"), fakes::symbol(2, "b", "tests/a.cpp"),
                       fakes::symbol(4, "c", "z.cpp"), fakes::symbol(-1, "d", "tests/a.cpp")});
  ASSERT_EQ(corpus->files.size(), 2U);
  EXPECT_EQ(corpus->files[1].ids, (Ids{5, 4}));
  EXPECT_EQ(corpus->files[2].ids, (Ids{2, -1}));
  EXPECT_FALSE(corpus->in_tests(*corpus->symbols.find(4)));
  EXPECT_TRUE(corpus->in_tests(*corpus->symbols.find(-1)));
  EXPECT_EQ(corpus->symbols.find(3), nullptr);
}

TEST(Snapshot, GivesEverySymbolBackAsListed) {
  // More than one batch of the listing, with ids that collide in any table of a power of two.
  std::vector<StoredSymbol> symbols;
  for (std::int64_t at = 0; at < 600; ++at) {
    symbols.push_back(fakes::symbol(at << 40, "n" + std::to_string(at % 7), "f.cpp"));
    if (at % 2 == 0) symbols.back().signature = at % 4 == 0 ? "" : "int n()";
  }
  const auto corpus = fakes::snapshot(symbols);
  ASSERT_EQ(corpus->symbols.size(), 600U);
  for (const StoredSymbol& listed : symbols) {
    EXPECT_EQ(corpus->symbol(listed.id),
              (RetrievedSymbol{listed.id, listed.fqn, listed.name, listed.kind, listed.path,
                               listed.start_line, listed.end_line, listed.signature}));
  }
}

TEST(Snapshot, FindsTheNamesThatStartWithAPrefix) {
  std::vector<StoredSymbol> symbols;
  for (const auto* name : {"pas", "abs", "part", "par", "Parser", "parse", "ÄB", "ä"}) {
    symbols.push_back(fakes::symbol(static_cast<SymbolId>(symbols.size()), name, "a.py"));
  }
  const auto corpus = fakes::snapshot(symbols);
  using Names = std::vector<std::string_view>;
  const std::vector<std::pair<std::string, Names>> cases{
      {"par", {"parse", "parser", "part"}},
      {"parser", {}},
      {"pa", {"par", "parse", "parser", "part", "pas"}},
      {"ä", {"äb"}},
      {"", {"abs", "par", "parse", "parser", "part", "pas", "ä", "äb"}},
      {"zz", {}}};
  for (const auto& [prefix, names] : cases) {
    const auto found = corpus->names_starting_with(prefix);
    EXPECT_EQ(Names(found.begin(), found.end()), names) << prefix;
  }
}

TEST(Snapshot, OfAnEmptyIndexIsEmptyAndHasTables) {
  fakes::Lines log;
  fakes::Index index;
  const auto corpus = _build_corpus(index, index.retrieval_fingerprint(), {}, fakes::rules(), log);
  EXPECT_EQ(corpus->symbols.size(), 0U);
  EXPECT_EQ(corpus->symbols.find(0), nullptr);
  EXPECT_TRUE(corpus->names_starting_with("").empty());
  ASSERT_NE(corpus->fts, nullptr);
  const std::vector<std::string> terms{"a"};
  EXPECT_FALSE(_matching(*corpus->fts, corpus->fts_lock, _FILE_TABLE, terms).next());
  ASSERT_EQ(log.all().size(), 1U);
  EXPECT_TRUE(log.all().front().starts_with(
      "debug Retrieval corpus built: 0 symbols in 0 files (0 symbols in test files) in "))
      << log.all().front();
}

TEST(Snapshot, RefusesAKindThatIsNotRetrievable) {
  try {
    fakes::snapshot({fakes::symbol(12, "x", "a.py", {}, "import")});
    FAIL() << "accepted";
  } catch (const UnknownKindError& error) {
    EXPECT_STREQ(error.what(),
                 "the index listed symbol 12 of the kind 'import', which is not retrievable");
  }
}

}  // namespace
}  // namespace retrieval
