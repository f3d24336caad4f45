// Rank fusion and the four channels.
#include <gtest/gtest.h>

#include <limits>
#include <numeric>

#include "fakes.hpp"
#include "retrieval/channels/exact.hpp"
#include "retrieval/channels/semantic.hpp"
#include "retrieval/channels/text.hpp"

namespace retrieval {
namespace {

using Ids = std::vector<SymbolId>;
using fakes::symbol;
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

TEST(Fusion, RanksDistinctIdsWithoutGaps) {
  EXPECT_EQ(ranks_in_order(Ids{7, 3, 7, 5}), (RankMap{{7, 1}, {3, 2}, {5, 3}}));
  EXPECT_EQ(ranks_in_order({}), RankMap{});
}

TEST(Fusion, AddsUpWhatTheChannelsFound) {
  const auto fused = reciprocal_rank_fusion({{"exact", {}},
                                             {"lexical", {{11, 1}, {12, 2}}},
                                             {"file", {{12, 1}, {13, 1}}},
                                             {"semantic", {{13, 1}}}});
  EXPECT_EQ(fused,
            (std::vector<FusedSymbol>{{13, 1.0 / 61 + 1.0 / 61, {{"file", 1}, {"semantic", 1}}},
                                      {12, 1.0 / 62 + 1.0 / 61, {{"lexical", 2}, {"file", 1}}},
                                      {11, 1.0 / 61, {{"lexical", 1}}}}));
}

TEST(Fusion, BreaksTiesByBestRankThenById) {
  const auto order = [](const OrderedMap<std::string, RankMap>& rankings) {
    Ids ids;
    for (const FusedSymbol& fused : reciprocal_rank_fusion(rankings)) ids.push_back(fused.id);
    return ids;
  };
  EXPECT_EQ(order({{"a", {{9, 1}, {4, 2}}}, {"b", {{4, 1}, {9, 2}}}}), (Ids{4, 9}));
  EXPECT_EQ(order({{"a", {{1, 62}, {2, 1}}}, {"b", {{1, 62}}}}), (Ids{2, 1}));
  EXPECT_EQ(order({{"a", {{5, 1}, {-5, 1}, {0, 1}}}}), (Ids{-5, 0, 5}));
  EXPECT_EQ(order({}), Ids{});
}

TEST(Fusion, FailsOnlyWhenAConstantCancelsARank) {
  EXPECT_THROW(reciprocal_rank_fusion({{"a", {{1, 3}}}}, -3), DivisionByZeroError);
  const auto score = [](std::int64_t k) {
    return reciprocal_rank_fusion({{"a", {{1, 2}}}}, k).front().score;
  };
  EXPECT_EQ(score(-3), -1.0);
  EXPECT_EQ(score(kMost), 1.0 / 9223372036854775809.0) << "the sum does not overflow";
}

// A snapshot with one symbol a name, whose ids are the places in the list.
class Exact : public testing::Test {
 protected:
  void list(const std::vector<std::string>& names) {
    std::vector<StoredSymbol> symbols;
    for (const std::string& name : names) {
      symbols.push_back(symbol(static_cast<SymbolId>(symbols.size()), name, "a.py"));
    }
    corpus = fakes::snapshot(symbols);
  }
  ExactNames ask(std::string_view query, std::int64_t depth = 50) {
    return _exact(*corpus, query, Admission(*corpus, true, std::nullopt), depth);
  }
  std::shared_ptr<const _Corpus> corpus;
};

TEST_F(Exact, ListsNamesThenLongerNamesAndPinsWhatReadsAsCode) {
  list({"build_context_pack", "build_context_pack_v2", "export", "exporter", "parse", "parser",
        "part", "parts", "pdf", "work", "io", "ion"});
  struct Case {
    std::string query;
    Ids ids;
    Ids pinned;
  };
  const std::vector<Case> cases{{"How does build_context_pack work?", {0, 9, 1}, {0}},
                                {"PDF export", {8, 2}, {}},
                                {"export", {2, 3}, {2}},
                                {"Export exPort", {2, 3}, {2}},  // two spellings of one name
                                {"par", {6, 4, 7, 5}, {}},  // by length, then in code-point order
                                {"what is X", {}, {}},
                                {"io", {10}, {10}},  // too short to stand for longer names
                                {"", {}, {}}};
  for (const auto& [query, ids, pinned] : cases) {
    const ExactNames found = ask(query);
    EXPECT_EQ(found.ids, ids) << query;
    EXPECT_EQ(found.pinned, std::unordered_set<SymbolId>(pinned.begin(), pinned.end())) << query;
  }
}

TEST_F(Exact, StopsAtTheDepthWordByWord) {
  list({"fooBar1", "fooBar22", "zedQux1", "zedQux22", "zedQux"});
  EXPECT_EQ(ask("fooBar", 1).ids, Ids{0});
  // The repeats of the second spelling count, so the last word adds its first longer name only.
  EXPECT_EQ(ask("fooBar FooBar zedQux", 5).ids, (Ids{4, 0, 1, 2}));
  EXPECT_EQ(ask("fooBar FooBar zedQux", 6).ids, (Ids{4, 0, 1, 2, 3}));
  EXPECT_EQ(ask("fooBar22 zedQux", 1).pinned.size(), 2U) << "pins are not cut at the depth";
}

TEST_F(Exact, NeitherListsNorPinsWhatMayNotAnswer) {
  corpus = fakes::snapshot({symbol(1, "Run", "tests/a.py"), symbol(2, "run", "src/a.py"),
                            symbol(3, "runner", "tests/a.py"), symbol(4, "Run", "lib/a.py")});
  const ExactNames found = _exact(*corpus, "run", Admission(*corpus, false, "src"), 50);
  EXPECT_EQ(found.ids, Ids{2});
  EXPECT_EQ(found.pinned, std::unordered_set<SymbolId>{2});
}

class Text : public testing::Test {
 protected:
  // The best match of both tables is a test; src/b.cpp holds the word least often.
  const std::shared_ptr<const _Corpus> corpus = fakes::snapshot(
      {symbol(1, "cacheCache", "tests/cache.cpp", "cache"), symbol(2, "cache", "src/cache.cpp"),
       symbol(3, "other", "src/cache.cpp"), symbol(4, "store", "src/b.cpp", "the cache of stores"),
       symbol(5, "put", "src/b.cpp", "puts something long and tedious into it")});
  const Admission admit{*corpus, false, std::nullopt};
  const std::vector<std::string> terms{"cache"};
};

TEST_F(Text, MatchesThatMayNotAnswerTakeNoRank) {
  EXPECT_EQ(_lexical(*corpus, terms, admit, 50), (_Channel{.ranks = {{2, 1}, {3, 2}, {4, 3}}}));
  EXPECT_EQ(_lexical(*corpus, terms, admit, 2), (_Channel{.ranks = {{2, 1}, {3, 2}}}));
  EXPECT_EQ(_lexical(*corpus, terms, {*corpus, true, std::nullopt}, 1).ranks, (RankMap{{1, 1}}));
  EXPECT_EQ(_files(*corpus, terms, {*corpus, false, "src/b.cpp"}, 1).ranks,
            (RankMap{{4, 1}, {5, 1}}));
}

TEST_F(Text, TheBestFilesLendTheirRankToAllTheirSymbols) {
  const RankMap best{{2, 1}, {3, 1}};
  const RankMap both{{2, 1}, {3, 1}, {4, 2}, {5, 2}};
  EXPECT_EQ(_files(*corpus, terms, admit, 1), (_Channel{.ranks = best}));
  EXPECT_EQ(_files(*corpus, terms, admit, 2).ranks, both);
  EXPECT_EQ(_files(*corpus, terms, admit, 0).ranks, both) << "below 1 nothing ends the list";
}

TEST_F(Text, NeedsTermsAndTables) {
  EXPECT_EQ(_lexical(*corpus, {}, admit, 50), _Channel{});
  EXPECT_EQ(_files(*corpus, {}, admit, 1), _Channel{});
  const auto bare = fakes::snapshot({symbol(1, "cache", "a.py")}, {.tokenizer = "no_such"});
  const Admission all(*bare, true, std::nullopt);
  const _Channel unavailable{{}, UNAVAILABLE, "this SQLite has no FTS5 for text search"};
  EXPECT_EQ(_lexical(*bare, {}, all, 50), unavailable);
  EXPECT_EQ(_files(*bare, terms, all, 1), unavailable);
}

// A snapshot of the ids 1 to 100 in lib, 101 to 110 in src; the index stores embeddings of the ids
// up to `stored`, nearest first.
class Semantic : public testing::Test {
 protected:
  Semantic() {
    std::vector<StoredSymbol> symbols;
    for (SymbolId id = 1; id <= 110; ++id) {
      symbols.push_back(symbol(id, "n", id <= 100 ? "lib/a.py" : "src/a.py"));
    }
    corpus = fakes::snapshot(symbols);
    index.nearest = [this](const QueryVector&, std::int64_t top_k) {
      asked.push_back(top_k);
      Ids ids(static_cast<std::size_t>(std::min(top_k, stored)));
      std::iota(ids.begin(), ids.end(), 1);
      return ids;
    };
  }
  _Channel ask(std::optional<std::string> scope = std::nullopt, std::int64_t depth = 50) {
    asked.clear();
    return _semantic(index, embedder, settings, log, "query", {*corpus, true, std::move(scope)},
                     depth);
  }
  std::shared_ptr<const _Corpus> corpus;
  fakes::Index index;
  fakes::Lines log;
  QueryEmbedder embedder = fakes::embed;
  RetrievalSettings settings;
  std::int64_t stored = 5000;
  std::vector<std::int64_t> asked;
};

_Channel without_ranks(std::string_view status, std::string problem) {
  return {.ranks = {}, .status = status, .problem = std::move(problem)};
}

TEST_F(Semantic, RanksTheNearestThatMayAnswer) {
  const _Channel found = ask("lib", 50);
  EXPECT_EQ(found.status, OK);
  EXPECT_EQ(found.ranks.size(), 50U);
  EXPECT_EQ(found.ranks.back(), (RankMap::value_type{50, 50}));
  EXPECT_EQ(asked, std::vector<std::int64_t>{150});
}

TEST_F(Semantic, WidensUntilTheCeilingAndSaysSo) {
  const _Channel found = ask("src");
  EXPECT_EQ(found.ranks.size(), 10U);
  EXPECT_EQ(found.ranks.back(), (RankMap::value_type{110, 10}));
  EXPECT_EQ(found.status, PARTIAL);
  EXPECT_EQ(found.problem,
            "meaning searched only the 2400 nearest embeddings, 10 of them in scope");
  EXPECT_EQ(asked, (std::vector<std::int64_t>{150, 600, 2400}));
  EXPECT_EQ(ask("nowhere"),
            without_ranks(PARTIAL,
                          "meaning searched only the 2400 nearest embeddings, 0 of them in scope"));
  ask("src", 200);
  EXPECT_EQ(asked, (std::vector<std::int64_t>{200, 800, 2400}));
  EXPECT_EQ(ask("src", 3000).status, PARTIAL);
  EXPECT_EQ(asked, std::vector<std::int64_t>{3000});
}

TEST_F(Semantic, IsUnavailableWithoutWhatItNeeds) {
  stored = 100;
  EXPECT_EQ(ask("src"),
            without_ranks(UNAVAILABLE, "no symbol in scope has an embedding of fake-model"));
  EXPECT_EQ(asked, std::vector<std::int64_t>{150}) << "fewer than asked is all there is";
  stored = 0;
  EXPECT_EQ(ask(), without_ranks(UNAVAILABLE, "the index has no symbol embeddings of fake-model"));
  embedder = nullptr;
  EXPECT_EQ(ask(), without_ranks(UNAVAILABLE, "no embedding model is configured"));
  struct Loading : TryAgainLaterError {
    using TryAgainLaterError::TryAgainLaterError;
  };
  embedder = [](auto) -> QueryVector { throw Loading("The model is loading."); };
  EXPECT_EQ(ask(), without_ranks(UNAVAILABLE, "the model is loading."));
  EXPECT_EQ(log.all(), std::vector<std::string>{});
}

TEST_F(Semantic, FailsWithAWarningOrPassesARequestToStop) {
  index.before = [](auto) { throw std::runtime_error("disk"); };
  EXPECT_EQ(ask(), without_ranks(FAILED, "the embedding search failed (see the log)"));
  embedder = [](auto) -> QueryVector { throw 7; };
  EXPECT_EQ(ask(), without_ranks(FAILED, "embedding the query failed (see the log)"));
  EXPECT_EQ(log.all(),
            (std::vector<std::string>{
                "warning The embedding search failed; ranking without meaning; disk",
                "warning Embedding the query failed; ranking without meaning; unknown error"}));
  embedder = [](auto) -> QueryVector { throw StopRequest(); };
  EXPECT_THROW(ask(), StopRequest);
  embedder = fakes::embed;
  index.before = [](auto) { throw StopRequest(); };
  EXPECT_THROW(ask(), StopRequest);
}

TEST_F(Semantic, TakesAnyNumberForASetting) {
  settings = {.semantic_shortlist = kLeast, .semantic_max_neighbours = kLeast};
  EXPECT_EQ(ask("lib", 1).ranks, (RankMap{{1, 1}}));
  EXPECT_EQ(asked, std::vector<std::int64_t>{1});
  settings = {.semantic_shortlist = kMost, .semantic_max_neighbours = kMost};
  index.nearest = [this](const QueryVector&, std::int64_t top_k) {
    asked.push_back(top_k);
    return Ids{1, 1, 2};
  };
  EXPECT_EQ(ask("lib", kMost).ranks, (RankMap{{1, 1}, {2, 2}})) << "named twice, ranked once";
  EXPECT_EQ(asked, std::vector<std::int64_t>{kMost});
}

}  // namespace
}  // namespace retrieval
