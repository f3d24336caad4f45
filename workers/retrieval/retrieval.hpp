// Hybrid code retrieval: given a question about a code base, the symbols of its index that answer
// it, best first, with a report of how each of four ranking channels fared.
//
// A host implements `Repository` over its index, hands it to a `HybridRetriever` with the rules
// that say what counts as code and a log, and asks `retrieve` from any thread. An embedder adds
// ranking by meaning, a decision client the rerank. Names that begin with an underscore are
// internal.
#pragma once

// IWYU pragma: begin_exports
#include "retrieval/channels/fusion.hpp"      // ranks_in_order, reciprocal_rank_fusion
#include "retrieval/host/code_rules.hpp"      // CodeRules, retrievable_kinds
#include "retrieval/host/decisions.hpp"       // RerankClient, DecisionSupport
#include "retrieval/host/embedding.hpp"       // QueryVector, QueryEmbedder, engine_query_embedder
#include "retrieval/host/errors.hpp"          // TryAgainLaterError, DecisionError, StopRequest
#include "retrieval/host/log.hpp"             // Log, log_text
#include "retrieval/host/repository.hpp"      // Repository, StoredSymbol, IndexFingerprint
#include "retrieval/query/names.hpp"          // query_names, reads_as_code
#include "retrieval/query/words.hpp"          // split_identifier, query_terms, STOP_WORDS, ...
#include "retrieval/rerank/constants.hpp"     // RERANK_DEPTH, RERANK_FEATURE
#include "retrieval/retriever/errors.hpp"     // SqliteError
#include "retrieval/retriever/records.hpp"    // Hit, RetrievalResult, CHANNELS, statuses
#include "retrieval/retriever/retriever.hpp"  // HybridRetriever, Host, Question
#include "retrieval/retriever/settings.hpp"   // RetrievalSettings and its weights
// IWYU pragma: end_exports
