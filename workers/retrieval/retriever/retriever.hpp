// The retriever: answers questions about one repository's index.
//
// Any number of threads may ask one retriever at the same time. It starts no thread of its own;
// `retrieve` blocks its caller, who reads the index, may embed the query and, on the first question
// after the index changed, builds a snapshot, while the others wait for it. Two locks exist and are
// never held together: the retriever's, for the snapshot cache and its build, and each snapshot's,
// for its text tables. The collaborators live at least as long as the retriever and are not closed
// by it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "retrieval/host/code_rules.hpp"
#include "retrieval/host/decisions.hpp"
#include "retrieval/host/embedding.hpp"
#include "retrieval/host/log.hpp"
#include "retrieval/host/repository.hpp"
#include "retrieval/retriever/records.hpp"
#include "retrieval/retriever/settings.hpp"

namespace retrieval {

struct _Corpus;

// What every retriever of a host needs beside the repository.
struct Host {
  CodeRules rules;
  std::shared_ptr<Log> log;  // never null
  // Prepares and reads the decision calls; may be null where no retriever has a decision client.
  std::shared_ptr<DecisionSupport> decision_support = nullptr;
};

// How to answer one question.
struct Question {
  std::int64_t limit = 10;  // how many hits at most; at least 1
  // A file or folder relative to the repository root; absent, empty or "." is the whole repository.
  std::optional<std::string_view> scope = std::nullopt;
  // Whether symbols in test files may answer; absent: when the query is about tests.
  std::optional<bool> include_tests = std::nullopt;
  bool rerank = false;  // ask the decision model to reorder the first hits
};

class HybridRetriever {
 public:
  // Touches none of its collaborators. Without an embedder the semantic channel is unavailable;
  // without a decision client nothing is ever reranked.
  HybridRetriever(std::shared_ptr<Repository> repository, Host host, QueryEmbedder embedder = {},
                  RetrievalSettings settings = {},
                  std::shared_ptr<RerankClient> decisions = nullptr);
  ~HybridRetriever();
  HybridRetriever(const HybridRetriever&) = delete;
  HybridRetriever& operator=(const HybridRetriever&) = delete;

  // The symbols that best answer the question, best first, with what each channel did.
  //
  // Throws std::invalid_argument for a limit below 1, before anything else is done. Failures of the
  // embedder, the embedding search and the decision model become a status or a note; those of the
  // index's fingerprint and listing, of the test-path rule, of `feature_enabled` and of SQLite
  // leave as they are, and the next question starts afresh.
  RetrievalResult retrieve(std::string_view query, const Question& question = {});

 private:
  std::shared_ptr<const _Corpus> _corpus();

  const std::shared_ptr<Repository> _repository;
  const Host _host;
  const QueryEmbedder _embedder;
  const std::shared_ptr<RerankClient> _decisions;
  const RetrievalSettings _settings;

  std::mutex _lock;
  std::shared_ptr<const _Corpus> _corpus_cache;  // guarded by _lock; the snapshot built last
};

}  // namespace retrieval
