// Reciprocal-rank fusion: merges the channels' rankings without looking at their raw scores.
//
// An id at rank r of a channel earns 1 / (k + r) there; its score is the sum over the channels that
// found it (G. V. Cormack, C. L. A. Clarke, S. Buettcher, "Reciprocal Rank Fusion outperforms
// Condorcet and individual Rank Learning Methods", SIGIR 2009, where k is 60 too). Pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "retrieval/retriever/records.hpp"

namespace retrieval {

// One fused id.
struct FusedSymbol {
  SymbolId id = 0;
  double score = 0.0;
  RanksByChannel ranks;  // in the order of the rankings

  bool operator==(const FusedSymbol&) const = default;
};

// The rank map of a best-first list: each distinct id with its 1-based rank, without gaps; a repeat
// keeps its first rank.
RankMap ranks_in_order(std::span<const SymbolId> ids);

// Every id that a ranking holds, best first: by score, then by the best rank it has anywhere, then
// by id. Scores add up in the order of the rankings. Throws DivisionByZeroError when k and a rank
// add up to 0.
std::vector<FusedSymbol> reciprocal_rank_fusion(const OrderedMap<std::string, RankMap>& rankings,
                                                std::int64_t k = 60);

}  // namespace retrieval
