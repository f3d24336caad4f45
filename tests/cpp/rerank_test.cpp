// The rerank: which hits move, and what a failure leaves.
#include "retrieval/rerank/rerank.hpp"

#include <gtest/gtest.h>

#include "fakes.hpp"

namespace retrieval {
namespace {

using Ids = std::vector<SymbolId>;
using Positions = std::vector<std::int64_t>;
const std::string kFailed =
    "The decision model could not rerank the hits (see the log); they keep the retriever's order.";

class Rerank : public testing::Test {
 protected:
  std::pair<Ids, std::optional<std::string>> ask(SymbolId count,
                                                 const std::unordered_set<SymbolId>& pinned) {
    std::vector<Hit> hits;
    for (SymbolId id = 1; id <= count; ++id) {
      hits.push_back({.symbol = {.id = id,
                                 .fqn = "f" + std::to_string(id),
                                 .name = {},
                                 .kind = {},
                                 .path = "a.py",
                                 .signature = {}},
                      .score = 1.0,
                      .ranks = {}});
    }
    const auto [ordered, note] =
        _reranked({index, decisions, decisions, log}, "it's", std::move(hits), pinned);
    return {fakes::ids_of(ordered), note};
  }
  fakes::Index index;
  fakes::Decisions decisions;
  fakes::Lines log;
};

TEST_F(Rerank, MovesTheFirstTwelveThatAreNotPinned) {
  decisions.order = [](auto&) { return Positions{4, 0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11}; };
  const auto [ids, note] = ask(20, {1, 2});
  EXPECT_EQ(ids, (Ids{1, 2, 7, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
  EXPECT_EQ(note, std::nullopt);
}

TEST_F(Rerank, ShowsTheModelOneLineForEachCandidate) {
  // The index no longer holds the symbol of the odd id.
  decisions.order = [](const std::vector<std::string>& lines) {
    EXPECT_EQ(lines, (std::vector<std::string>{"f2 a.py doc 2", "f3 a.py -"}));
    return Positions{1, 0};
  };
  EXPECT_EQ(ask(3, {1}).first, (Ids{1, 3, 2}));
}

TEST_F(Rerank, AsksNothingForFewerThanTwo) {
  index.before = [](auto) { FAIL() << "asked"; };
  EXPECT_EQ(ask(3, {1, 2}).first, (Ids{1, 2, 3}));
  EXPECT_EQ(ask(3, {1, 2, 3}).second, std::nullopt);
  EXPECT_EQ(ask(0, {}).first, Ids{});
}

TEST_F(Rerank, TakesTheOrderAsItIs) {
  decisions.order = [](auto&) { return Positions{1, 1}; };
  EXPECT_EQ(ask(4, {1}).first, (Ids{1, 3, 3})) << "three candidates, one named twice, two never";
}

TEST_F(Rerank, KeepsTheOrderWhenTheModelOrTheIndexFails) {
  decisions.order = [](auto&) -> Positions { throw DecisionError("deadline of 3 s"); };
  EXPECT_EQ(ask(3, {}), (std::pair{Ids{1, 2, 3}, std::optional(kFailed)}));
  index.before = [](auto) { throw std::runtime_error("disk"); };
  EXPECT_EQ(ask(3, {3}), (std::pair{Ids{1, 2, 3}, std::optional(kFailed)}));
  EXPECT_EQ(log.all(),
            (std::vector<std::string>{
                R"(warning The rerank of 'it\'s' kept the retriever's order: deadline of 3 s)",
                R"(warning The rerank of 'it\'s' failed; disk)"}));
  index.before = [](auto) { throw StopRequest(); };
  EXPECT_THROW(ask(3, {}), StopRequest);
}

TEST_F(Rerank, FailsTheQuestionForAPositionOutsideTheCandidates) {
  for (const std::int64_t position : {std::int64_t{3}, std::int64_t{-1}}) {
    decisions.order = [&](auto&) { return Positions{0, position}; };
    EXPECT_THROW(ask(3, {}), std::out_of_range) << position;
  }
}

TEST_F(Rerank, IsOnOnlyWithAClientWhoseSwitchIsOn) {
  EXPECT_TRUE(_reranking(&decisions));
  decisions.on = false;
  EXPECT_FALSE(_reranking(&decisions));
  EXPECT_FALSE(_reranking(nullptr));
}

}  // namespace
}  // namespace retrieval
