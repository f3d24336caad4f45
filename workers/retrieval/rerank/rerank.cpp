#include "retrieval/rerank/rerank.hpp"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <span>
#include <stdexcept>

#include "retrieval/host/errors.hpp"
#include "retrieval/retriever/notes.hpp"

namespace retrieval {
namespace {

// What the model is shown of each candidate, in their order.
std::vector<std::string> _rerank_lines(const RerankHost& host, std::span<const Hit> candidates) {
  const HostValue consent = host.support.source_consented(host.decisions);
  std::vector<SymbolId> ids;
  for (const Hit& hit : candidates) ids.push_back(hit.symbol.id);
  const auto found = host.repository.get_symbols_by_ids(ids);
  std::vector<std::string> lines;
  for (const Hit& hit : candidates) {
    const RetrievedSymbol& symbol = hit.symbol;
    const auto stored = found.find(symbol.id);
    const bool has_docstring = stored != found.end() && stored->second.has_value();
    Candidate candidate{.fqn = symbol.fqn,
                        .kind = symbol.kind,
                        .docstring = std::nullopt,
                        .signature = symbol.signature,
                        .path = symbol.path};
    if (has_docstring) candidate.docstring = *stored->second;
    lines.push_back(host.support.candidate_line(candidate, consent));
  }
  return lines;
}

std::vector<std::int64_t> ask(const RerankHost& host, std::string_view query,
                              std::span<const Hit> candidates) {
  const std::vector<std::string> lines = _rerank_lines(host, candidates);
  const DecisionRequest request = host.support.rerank_request(query, lines);
  const HostValue answer = host.decisions.decide(request, host.support.rerank_question_version());
  return host.support.rerank_order(answer, candidates.size());
}

}  // namespace

bool _reranking(RerankClient* decisions) {
  return decisions != nullptr && decisions->feature_enabled(RERANK_FEATURE);
}

std::pair<std::vector<Hit>, std::optional<std::string>> _reranked(
    const RerankHost& host, std::string_view query, std::vector<Hit> hits,
    const std::unordered_set<SymbolId>& pinned) {
  const auto is_pinned = [&](const Hit& hit) { return pinned.contains(hit.symbol.id); };
  const auto unpinned =
      hits.size() - static_cast<std::size_t>(std::ranges::count_if(hits, is_pinned));
  const std::size_t count = std::min<std::size_t>(unpinned, RERANK_DEPTH);
  if (count < 2) return {std::move(hits), std::nullopt};
  // Pinned hits come first as it is; this keeps both kinds in their order wherever they are.
  std::vector<Hit> ordered = hits;
  const auto movable = std::ranges::stable_partition(ordered, is_pinned);
  const std::span<Hit> head(movable.begin(), count);

  std::vector<std::int64_t> order;
  try {
    order = ask(host, query, head);
  } catch (const StopRequest&) {
    throw;
  } catch (const DecisionError&) {
    host.log.write({LogLevel::kWarning,
                    "The rerank of %r kept the retriever's order: %s",
                    {std::string(query), std::current_exception()},
                    nullptr});
    return {std::move(hits), std::string(_RERANK_FAILED)};
  } catch (...) {
    host.log.write({LogLevel::kWarning,
                    "The rerank of %r failed",
                    {std::string(query)},
                    std::current_exception()});
    return {std::move(hits), std::string(_RERANK_FAILED)};
  }

  std::vector<Hit> reranked(ordered.begin(), movable.begin());
  for (const std::int64_t position : order) {
    if (std::cmp_less(position, 0) || std::cmp_greater_equal(position, count)) {
      throw std::out_of_range("the rerank order names position " + std::to_string(position) +
                              " of " + std::to_string(count) + " candidates");
    }
    reranked.push_back(head[static_cast<std::size_t>(position)]);
  }
  reranked.insert(reranked.end(), movable.begin() + static_cast<std::ptrdiff_t>(count),
                  movable.end());
  return {std::move(reranked), std::nullopt};
}

}  // namespace retrieval
