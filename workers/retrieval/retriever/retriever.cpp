#include "retrieval/retriever/retriever.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "retrieval/channels/exact.hpp"
#include "retrieval/channels/fusion.hpp"
#include "retrieval/channels/semantic.hpp"
#include "retrieval/channels/text.hpp"
#include "retrieval/corpus/corpus.hpp"
#include "retrieval/query/words.hpp"
#include "retrieval/rerank/rerank.hpp"
#include "retrieval/retriever/notes.hpp"
#include "retrieval/retriever/scope.hpp"

namespace retrieval {
namespace {

// The fused symbols with the pinned ones in front, both kinds in their fused order.
std::vector<FusedSymbol> pinned_first(std::vector<FusedSymbol> fused,
                                      const std::unordered_set<SymbolId>& pinned) {
  std::ranges::stable_partition(
      fused, [&](const FusedSymbol& symbol) { return pinned.contains(symbol.id); });
  return fused;
}

std::vector<Hit> make_hits(const _Corpus& corpus, std::vector<FusedSymbol>&& ordered,
                           std::int64_t count) {
  std::vector<Hit> hits;
  for (FusedSymbol& symbol : ordered) {
    if (std::cmp_greater_equal(hits.size(), count)) break;
    hits.push_back({corpus.symbol(symbol.id), symbol.score, std::move(symbol.ranks)});
  }
  return hits;
}

// The channels' rank maps, taken out of them.
OrderedMap<std::string, RankMap> take_rankings(_Channels& channels) {
  OrderedMap<std::string, RankMap> rankings;
  for (auto& [name, channel] : channels) rankings.emplace_back(name, std::move(channel.ranks));
  return rankings;
}

std::int64_t saturating_sum(std::int64_t a, std::int64_t b) {
  return a > std::numeric_limits<std::int64_t>::max() - b ? std::numeric_limits<std::int64_t>::max()
                                                          : a + b;
}

}  // namespace

HybridRetriever::HybridRetriever(std::shared_ptr<Repository> repository, Host host,
                                 QueryEmbedder embedder, RetrievalSettings settings,
                                 std::shared_ptr<RerankClient> decisions)
    : _repository(std::move(repository)),
      _host(std::move(host)),
      _embedder(std::move(embedder)),
      _decisions(std::move(decisions)),
      _settings(std::move(settings)) {}

HybridRetriever::~HybridRetriever() = default;

RetrievalResult HybridRetriever::retrieve(std::string_view query, const Question& question) {
  if (question.limit < 1) {
    throw std::invalid_argument("limit must be at least 1, not " + std::to_string(question.limit));
  }
  const std::vector<std::string> terms = query_terms(query);
  const bool tests_allowed = question.include_tests.value_or(is_test_query(terms));
  const std::shared_ptr<const _Corpus> corpus = _corpus();
  const Admission admit(*corpus, tests_allowed, _normalize_scope(question.scope));
  const std::int64_t depth = std::max(_settings.depth, question.limit);

  const auto [exact_ids, pinned] = _exact(*corpus, query, admit, depth);
  _Channels channels;
  channels.emplace_back(EXACT, _Channel{.ranks = ranks_in_order(exact_ids)});
  channels.emplace_back(LEXICAL, _lexical(*corpus, terms, admit, depth));
  channels.emplace_back(FILE, _files(*corpus, terms, admit, _settings.best_files));
  channels.emplace_back(
      SEMANTIC, _semantic(*_repository, _embedder, _settings, *_host.log, query, admit, depth));

  std::vector<FusedSymbol> ordered =
      pinned_first(reciprocal_rank_fusion(take_rankings(channels), _settings.rrf_k), pinned);
  const bool reranking = question.rerank && _reranking(_decisions.get());
  const std::int64_t count =
      reranking ? saturating_sum(question.limit, RERANK_DEPTH) : question.limit;
  RetrievalResult result{.hits = make_hits(*corpus, std::move(ordered), count), .channels = {}};
  result.note = _note(channels);
  for (const auto& [name, channel] : channels) result.channels.emplace_back(name, channel.status);
  if (!reranking) return result;

  const RerankHost host{*_repository, *_decisions, *_host.decision_support, *_host.log};
  auto [hits, rerank_note] = _reranked(host, query, std::move(result.hits), pinned);
  result.hits = std::move(hits);
  if (std::cmp_greater(result.hits.size(), question.limit)) {
    result.hits.resize(static_cast<std::size_t>(question.limit));
  }
  if (rerank_note) result.note = result.note ? *result.note + " " + *rerank_note : *rerank_note;
  return result;
}

std::shared_ptr<const _Corpus> HybridRetriever::_corpus() {
  const std::shared_ptr<const IndexFingerprint> fingerprint = _repository->retrieval_fingerprint();
  // Both outlive the lock: the last holder of a fingerprint runs the host's code as it lets go.
  std::shared_ptr<const _Corpus> replaced;
  const std::lock_guard guard(_lock);
  if (_corpus_cache == nullptr || _corpus_cache->fingerprint->differs_from(*fingerprint)) {
    replaced = _build_corpus(*_repository, fingerprint, _settings, _host.rules, *_host.log);
    replaced.swap(_corpus_cache);
  }
  return _corpus_cache;
}

}  // namespace retrieval
