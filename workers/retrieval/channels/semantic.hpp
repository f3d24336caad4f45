// The semantic channel: cosine similarity between the query's embedding and the stored ones,
// searched ever wider until enough neighbours may answer.
//
// It takes no lock and never fails the question: what the embedder or the index throws becomes the
// channel's status, unless it is a StopRequest.
#pragma once

#include <cstdint>
#include <string_view>

#include "retrieval/host/embedding.hpp"
#include "retrieval/host/log.hpp"
#include "retrieval/host/repository.hpp"
#include "retrieval/retriever/records.hpp"
#include "retrieval/retriever/scope.hpp"
#include "retrieval/retriever/settings.hpp"

namespace retrieval {

// The factor by which the number of neighbours grows from one pass to the next.
inline constexpr std::int64_t _WIDENING = 4;

// Ranks the `depth` nearest admitted symbols.
_Channel _semantic(Repository& repository, const QueryEmbedder& embedder,
                   const RetrievalSettings& settings, Log& log, std::string_view query,
                   const Admission& admit, std::int64_t depth);

// The widening search alone; throws what the index throws.
_Channel _nearest(Repository& repository, const RetrievalSettings& settings,
                  const QueryVector& vector, const Admission& admit, std::int64_t depth);

}  // namespace retrieval
