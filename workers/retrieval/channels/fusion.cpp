#include "retrieval/channels/fusion.hpp"

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "retrieval/retriever/errors.hpp"

namespace retrieval {
namespace {

double share(std::int64_t k, std::int64_t rank) {
  // Wide enough for any two of them; the conversion to double rounds to nearest.
  __extension__ using Wide = __int128;
  const Wide sum = static_cast<Wide>(k) + rank;
  if (sum == 0) throw DivisionByZeroError("float division by zero");
  return 1.0 / static_cast<double>(sum);
}

}  // namespace

RankMap ranks_in_order(std::span<const SymbolId> ids) {
  RankMap ranks;
  ranks.reserve(ids.size());
  std::unordered_set<SymbolId> seen;
  for (const SymbolId id : ids) {
    if (seen.insert(id).second) ranks.emplace_back(id, static_cast<std::int64_t>(seen.size()));
  }
  return ranks;
}

std::vector<FusedSymbol> reciprocal_rank_fusion(const OrderedMap<std::string, RankMap>& rankings,
                                                std::int64_t k) {
  struct Candidate {
    FusedSymbol fused;
    std::int64_t best_rank;
  };
  std::vector<Candidate> candidates;
  std::unordered_map<SymbolId, std::size_t> places;
  for (const auto& [channel, ranks] : rankings) {
    for (const auto& [id, rank] : ranks) {
      const auto [entry, is_new] = places.try_emplace(id, candidates.size());
      if (is_new) candidates.push_back({{.id = id, .score = 0.0, .ranks = {}}, rank});
      Candidate& candidate = candidates[entry->second];
      candidate.fused.score += share(k, rank);
      candidate.fused.ranks.emplace_back(channel, rank);
      candidate.best_rank = std::min(candidate.best_rank, rank);
    }
  }
  std::ranges::sort(candidates, {}, [](const Candidate& candidate) {
    return std::tuple(-candidate.fused.score, candidate.best_rank, candidate.fused.id);
  });
  std::vector<FusedSymbol> fused;
  fused.reserve(candidates.size());
  for (Candidate& candidate : candidates) fused.push_back(std::move(candidate.fused));
  return fused;
}

}  // namespace retrieval
