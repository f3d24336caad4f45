// Notes, scope and settings, and questions asked end to end.
#include "retrieval/retriever/retriever.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "fakes.hpp"
#include "retrieval/retriever/notes.hpp"
#include "retrieval/retriever/scope.hpp"

namespace retrieval {
namespace {

using Ids = std::vector<SymbolId>;
using fakes::ids_of;
using fakes::symbol;
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

TEST(Note, TellsWhatWasMissingAndWhatWasCutShort) {
  const _Channel ok;
  const _Channel no_text{{}, UNAVAILABLE, "no text"};
  const _Channel no_model{{}, FAILED, "no model"};
  const _Channel partial{{}, PARTIAL, "éven less"};
  const _Channel silent{{}, UNAVAILABLE, ""};
  struct Case {
    std::array<_Channel, 4> channels;
    std::optional<std::string> note;
  };
  const std::vector<Case> cases{
      {{ok, ok, ok, ok}, std::nullopt},
      {{ok, silent, {{}, FAILED}, ok}, std::nullopt},
      {{ok, ok, ok, no_model}, "Ranked by name and text only: no model."},
      {{ok, no_text, no_text, no_model}, "Ranked by name only: no text; no model."},
      {{ok, ok, ok, partial}, "Éven less."},
      {{ok, no_text, no_text, partial}, "Ranked by name and meaning only: no text. Éven less."},
      {{no_text, no_text, no_text, no_text}, "Ranked by nothing only: no text."},
      {{partial, {{}, OK, "odd"}, ok, partial},
       "Ranked by name and text and meaning only: odd. Éven less. Éven less."}};
  for (const auto& [given, note] : cases) {
    _Channels channels;
    for (std::size_t i = 0; i < given.size(); ++i) channels.emplace_back(CHANNELS[i], given[i]);
    EXPECT_EQ(_note(channels), note);
  }
}

TEST(Scope, IsNormalised) {
  for (const auto* scope : {"", ".", "./", "/", " \u3000\t", ".//"}) {
    EXPECT_EQ(_normalize_scope(scope), std::nullopt) << scope;
  }
  EXPECT_EQ(_normalize_scope(std::nullopt), std::nullopt);
  const std::vector<std::pair<std::string, std::string>> cases{
      {"././src", "src"},
      {".//src//", "src"},
      {" \\src\\retrieval\\ ", "src/retrieval"},
      {"src/./x//y/..", "src/./x//y/.."},
      {"/./src", "./src"}};
  for (const auto& [scope, normal] : cases) EXPECT_EQ(_normalize_scope(scope), normal) << scope;
}

TEST(Scope, AdmitsWhatLiesInItAndTheSnapshotHolds) {
  EXPECT_TRUE(_in_scope("src/x/b.py", "src"));
  EXPECT_TRUE(_in_scope("src", "src"));
  EXPECT_TRUE(_in_scope("anything", std::nullopt));
  for (const auto* path : {"srcx/a.py", "Src/a.py", "lib/src", "sr", ""}) {
    EXPECT_FALSE(_in_scope(path, "src")) << path;
  }
  const auto corpus =
      fakes::snapshot({symbol(1, "a", "src/a.py"), symbol(2, "b", "tests/src/b.py")});
  EXPECT_TRUE(Admission(*corpus, false, "src")(1));
  EXPECT_FALSE(Admission(*corpus, false, "tests")(2));
  EXPECT_TRUE(Admission(*corpus, true, "tests")(2));
  EXPECT_FALSE(Admission(*corpus, true, std::nullopt)(3));
}

TEST(Settings, WriteWeightsInTheirShortestForm) {
  EXPECT_EQ(RetrievalSettings().weights.rank_function(), "bm25(10.0, 3.0, 2.0, 1.0)");
  EXPECT_EQ(RetrievalSettings().file_weights.rank_function(), "bm25(3.0, 2.0, 1.0)");
  const std::vector<std::pair<double, std::string>> cases{{0.5, "0.5"},
                                                          {0.1, "0.1"},
                                                          {0.0001, "0.0001"},
                                                          {1e-5, "1e-05"},
                                                          {2.5e-7, "2.5e-07"},
                                                          {1e15, "1000000000000000.0"},
                                                          {1e16, "1e+16"},
                                                          {-1.5e-100, "-1.5e-100"},
                                                          {-0.0, "-0.0"},
                                                          {1.0 / 3, "0.3333333333333333"},
                                                          {9007199254740993, "9007199254740992.0"}};
  for (const auto& [weight, text] : cases) {
    EXPECT_EQ(_bm25(std::array{weight}), "bm25(" + text + ")");
  }
}

class Retriever : public testing::Test {
 protected:
  HybridRetriever make(QueryEmbedder embedder = {}, RetrievalSettings settings = {}) {
    const Host host{fakes::rules(), std::make_shared<fakes::Lines>(), decisions};
    return {index, host, std::move(embedder), std::move(settings), decisions};
  }
  int listings() const { return index->counts->listings; }

  const std::shared_ptr<fakes::Index> index = std::make_shared<fakes::Index>(std::vector{
      symbol(1, "load_config", "src/config.cpp", "Loads the cache."),
      symbol(2, "Cache", "src/cache.cpp", "Keeps the config.", "class"),
      symbol(3, "cache_test", "tests/cache.cpp", "Checks the cache."),
      symbol(4, "evict", "src/cache.cpp", "Evicts from the cache."),
  });
  const std::shared_ptr<fakes::Decisions> decisions = std::make_shared<fakes::Decisions>();
};

TEST_F(Retriever, AnswersWithRanksStatusesAndANote) {
  HybridRetriever retriever = make({}, {.rrf_k = 0});
  const RetrievalResult result = retriever.retrieve("where is Cache kept");
  ASSERT_EQ(ids_of(result.hits), (Ids{2, 4, 1}));
  EXPECT_EQ(result.hits[0].ranks, (RanksByChannel{{"exact", 1}, {"lexical", 1}, {"file", 1}}));
  EXPECT_EQ(result.hits[0].score, 3.0);
  EXPECT_EQ(result.hits[0].symbol, (RetrievedSymbol{2, "src/cache.cpp::Cache", "Cache", "class",
                                                    "src/cache.cpp", 2, 3, std::nullopt}));
  EXPECT_EQ(result.channels,
            (OrderedMap<std::string_view, std::string_view>{
                {"exact", "ok"}, {"lexical", "ok"}, {"file", "ok"}, {"semantic", "unavailable"}}));
  EXPECT_EQ(result.note, "Ranked by name and text only: no embedding model is configured.");
}

TEST_F(Retriever, AllowsTestsWhenAskedToOrWhenTheQueryIsAboutThem) {
  HybridRetriever retriever = make();
  const auto has_test = [&](std::string_view query, std::optional<bool> include_tests) {
    return !retriever.retrieve(query, {.scope = " ./tests\\ ", .include_tests = include_tests})
                .hits.empty();
  };
  EXPECT_FALSE(has_test("cache", std::nullopt));
  EXPECT_TRUE(has_test("cache tests", std::nullopt));
  EXPECT_FALSE(has_test("cache tests", false));
  EXPECT_TRUE(has_test("cache", true));
}

TEST_F(Retriever, RefusesALimitBelowOneBeforeItReadsTheIndex) {
  HybridRetriever retriever = make();
  index->before = [](auto) { FAIL() << "read"; };
  for (const std::int64_t limit : {std::int64_t{0}, std::int64_t{-3}}) {
    try {
      retriever.retrieve("cache", {.limit = limit});
      FAIL() << "answered";
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(error.what(), "limit must be at least 1, not " + std::to_string(limit));
    }
  }
}

TEST_F(Retriever, PutsPinnedSymbolsBeforeBetterScores) {
  index->become({symbol(1, "do_it", "src/z.cpp"), symbol(2, "cache", "src/cache.cpp")});
  HybridRetriever retriever = make();
  const auto hits = retriever.retrieve("cache do_it").hits;
  ASSERT_EQ(ids_of(hits), (Ids{1, 2}));
  EXPECT_EQ(hits[0].score, 1.0 / 62);
  EXPECT_EQ(hits[1].score, 1.0 / 61 + 1.0 / 61 + 1.0 / 61);
}

TEST_F(Retriever, GivesAsManyHitsAsTheLimitSays) {
  HybridRetriever retriever = make({}, {.depth = 1});
  EXPECT_EQ(retriever.retrieve("cache", {.limit = 1}).hits.size(), 1U);
  EXPECT_EQ(retriever.retrieve("cache", {.limit = 3}).hits.size(), 3U) << "beyond the depth";
  EXPECT_EQ(retriever.retrieve("cache", {.limit = kMost, .rerank = true}).hits.size(), 3U);
  EXPECT_TRUE(retriever.retrieve("cache", {.scope = "nowhere"}).hits.empty());
}

TEST_F(Retriever, BuildsOneSnapshotForEachStateInTurn) {
  HybridRetriever retriever = make();
  EXPECT_EQ(listings(), 0) << "construction reads nothing";
  retriever.retrieve("cache");
  retriever.retrieve("config");
  EXPECT_EQ(listings(), 1);
  index->become({symbol(9, "cache", "src/new.cpp")});
  EXPECT_EQ(ids_of(retriever.retrieve("cache").hits), Ids{9});
  retriever.retrieve("cache");
  EXPECT_EQ(listings(), 2);
  EXPECT_EQ(index->counts->alive, 1) << "the replaced snapshot is gone";
}

TEST_F(Retriever, BuildsAgainWhenTheIndexChangedDuringABuild) {
  HybridRetriever retriever = make();
  int readings = 0;
  index->before = [&](fakes::Index::Call call) {
    if (call == fakes::Index::Call::kFingerprint) ++readings;
    if (call == fakes::Index::Call::kListing) index->become({symbol(9, "cache", "src/new.cpp")});
  };
  EXPECT_EQ(ids_of(retriever.retrieve("cache").hits), Ids{9});
  EXPECT_EQ(readings, 1) << "the snapshot carries the state that the question read";
  index->before = [](auto) {};
  retriever.retrieve("cache");
  EXPECT_EQ(listings(), 2);
}

TEST_F(Retriever, KeepsItsSnapshotWhenABuildFailsAndPassesTheErrorOn) {
  HybridRetriever retriever = make();
  retriever.retrieve("cache");
  const auto error = std::make_exception_ptr(std::runtime_error("disk"));
  const auto fails_at = [&](fakes::Index::Call failing) {
    index->before = [=](auto call) {
      if (call == failing) std::rethrow_exception(error);
    };
    try {
      retriever.retrieve("cache");
    } catch (...) {
      return std::current_exception() == error;
    }
    return false;
  };
  EXPECT_TRUE(fails_at(fakes::Index::Call::kFingerprint));
  EXPECT_FALSE(fails_at(fakes::Index::Call::kListing)) << "nothing to build";
  index->become({symbol(9, "cache", "src/new.cpp")});
  EXPECT_TRUE(fails_at(fakes::Index::Call::kListing));
  EXPECT_TRUE(fails_at(fakes::Index::Call::kListing)) << "the next question tries again";
  EXPECT_EQ(index->counts->alive, 1) << "the old snapshot stays, and no other";
  index->before = [](auto) {};
  EXPECT_EQ(ids_of(retriever.retrieve("cache").hits), Ids{9});
}

TEST_F(Retriever, HoldsNoLockWhileItAsksTheHostAndKeepsItsSnapshot) {
  // In the middle of a question the index changes and another question is asked and answered.
  std::unique_ptr<HybridRetriever> retriever;
  Ids inner;
  const auto embed = [&](std::string_view text) {
    if (text != "inner cache") {
      index->become({symbol(9, "cache", "src/new.cpp")});
      inner = ids_of(retriever->retrieve("inner cache").hits);
      EXPECT_EQ(index->counts->alive, 2);
    }
    return fakes::embed(text);
  };
  retriever = std::make_unique<HybridRetriever>(
      index, Host{fakes::rules(), std::make_shared<fakes::Lines>()}, embed);
  EXPECT_EQ(ids_of(retriever->retrieve("cache").hits), (Ids{2, 4, 1}));
  EXPECT_EQ(inner, Ids{9});
  EXPECT_EQ(index->counts->alive, 1);
}

TEST_F(Retriever, RerankBringsHitsFromBeyondTheLimit) {
  HybridRetriever retriever = make();
  const Ids plain = ids_of(retriever.retrieve("cache config").hits);
  EXPECT_EQ(decisions->switch_reads, 0) << "asked only for a rerank";
  EXPECT_EQ(ids_of(retriever.retrieve("cache config", {.limit = 1, .rerank = true}).hits),
            Ids{plain.back()});
  decisions->on = false;
  EXPECT_EQ(ids_of(retriever.retrieve("cache config", {.limit = 1, .rerank = true}).hits),
            Ids{plain.front()});
}

TEST_F(Retriever, JoinsTheNotesOfTheChannelsAndOfTheRerank) {
  decisions->order = [](auto&) -> std::vector<std::int64_t> { throw DecisionError("late"); };
  const std::string failed(_RERANK_FAILED);
  HybridRetriever bare = make({}, {.tokenizer = "no_such"});
  const Question reranked{.rerank = true};
  EXPECT_EQ(bare.retrieve("cache config", reranked).note,
            "Ranked by name only: this SQLite has no FTS5 for text search; "
            "no embedding model is configured.");
  index->nearest = [](auto&, auto) { return Ids{1, 2, 4}; };
  HybridRetriever full = make(fakes::embed);
  EXPECT_EQ(full.retrieve("cache config").note, std::nullopt);
  EXPECT_EQ(full.retrieve("cache config", reranked).note, failed);
  index->nearest = [](auto&, auto) { return Ids(); };
  EXPECT_EQ(
      full.retrieve("cache config", reranked).note,
      "Ranked by name and text only: the index has no symbol embeddings of fake-model. " + failed);
}

}  // namespace
}  // namespace retrieval
