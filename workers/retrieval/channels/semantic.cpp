#include "retrieval/channels/semantic.hpp"

#include <algorithm>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "retrieval/channels/fusion.hpp"
#include "retrieval/host/errors.hpp"
#include "retrieval/retriever/notes.hpp"

namespace retrieval {
namespace {

_Channel unavailable(std::string problem) {
  return {.ranks = {}, .status = UNAVAILABLE, .problem = std::move(problem)};
}

_Channel failed(Log& log, std::string_view line, std::string problem) {
  log.write({LogLevel::kWarning, line, {}, std::current_exception()});
  return {.ranks = {}, .status = FAILED, .problem = std::move(problem)};
}

}  // namespace

_Channel _semantic(Repository& repository, const QueryEmbedder& embedder,
                   const RetrievalSettings& settings, Log& log, std::string_view query,
                   const Admission& admit, std::int64_t depth) {
  if (!embedder) return unavailable("no embedding model is configured");
  QueryVector vector;
  try {
    vector = embedder(query);
  } catch (const StopRequest&) {
    throw;
  } catch (const TryAgainLaterError& error) {
    return unavailable(_sentence_start(error.message()));
  } catch (...) {
    return failed(log, "Embedding the query failed; ranking without meaning",
                  "embedding the query failed (see the log)");
  }
  try {
    return _nearest(repository, settings, vector, admit, depth);
  } catch (const StopRequest&) {
    throw;
  } catch (...) {
    return failed(log, "The embedding search failed; ranking without meaning",
                  "the embedding search failed (see the log)");
  }
}

_Channel _nearest(Repository& repository, const RetrievalSettings& settings,
                  const QueryVector& vector, const Admission& admit, std::int64_t depth) {
  std::int64_t searched = std::max(settings.semantic_shortlist, depth);
  const std::int64_t ceiling = std::max(settings.semantic_max_neighbours, searched);
  while (true) {
    const std::vector<SymbolId> nearest = repository.nearest_symbol_ids(vector, searched);
    if (nearest.empty()) {
      return unavailable("the index has no symbol embeddings of " + vector.model);
    }
    std::vector<SymbolId> admitted;
    std::ranges::copy_if(nearest, std::back_inserter(admitted), admit);
    if (std::cmp_greater_equal(admitted.size(), depth) || std::cmp_less(nearest.size(), searched)) {
      if (admitted.empty()) {
        return unavailable("no symbol in scope has an embedding of " + vector.model);
      }
      const auto ranked =
          std::min<std::uint64_t>(admitted.size(), static_cast<std::uint64_t>(depth));
      return {.ranks = ranks_in_order(std::span(admitted).first(ranked))};
    }
    if (searched >= ceiling) {
      return {.ranks = ranks_in_order(admitted),
              .status = PARTIAL,
              .problem = "meaning searched only the " + std::to_string(searched) +
                         " nearest embeddings, " + std::to_string(admitted.size()) +
                         " of them in scope"};
    }
    // No overflow: so many neighbours were just returned.
    searched = std::min(searched * _WIDENING, ceiling);
  }
}

}  // namespace retrieval
