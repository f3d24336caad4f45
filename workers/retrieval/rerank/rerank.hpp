// The rerank: one bounded call of the decision model that may reorder the first hits that no exact
// name pins.
//
// It takes no lock and fails no question, with two exceptions: a StopRequest, and an order that
// names a position outside the candidates, which is a std::out_of_range.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "retrieval/host/decisions.hpp"
#include "retrieval/host/log.hpp"
#include "retrieval/host/repository.hpp"
#include "retrieval/rerank/constants.hpp"
#include "retrieval/retriever/records.hpp"

namespace retrieval {

// Whether a rerank may ask the decision model; a null client is none.
bool _reranking(RerankClient* decisions);

// Whom a rerank asks. All live through the call.
struct RerankHost {
  Repository& repository;
  RerankClient& decisions;
  DecisionSupport& support;
  Log& log;
};

// The hits with the first unpinned ones in the model's order, and no note; or the hits as they
// were, with the note when the model could not order them.
std::pair<std::vector<Hit>, std::optional<std::string>> _reranked(
    const RerankHost& host, std::string_view query, std::vector<Hit> hits,
    const std::unordered_set<SymbolId>& pinned);

}  // namespace retrieval
