// The repository's index, as the library reads it.
//
// A host implements `Repository` over its index and hands it to a retriever, which shares it for
// its whole life and closes nothing. What a call returns is owned by the library; arguments that
// are views live for the call.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "retrieval/host/embedding.hpp"
#include "retrieval/retriever/records.hpp"

namespace retrieval {

// A value of the host's that the library only keeps or passes on.
using HostValue = std::shared_ptr<const void>;

using StringSet = std::set<std::string, std::less<>>;

// One state of the index, opaque but for this comparison. Two readings of an unchanged index do not
// differ; any change of a retrievable symbol, its file, name, signature, docstring or path makes
// them differ. Compared while the retriever's lock is held; released from any thread.
class IndexFingerprint {
 public:
  virtual ~IndexFingerprint() = default;
  virtual bool differs_from(const IndexFingerprint& other) const = 0;
};

// One symbol of the index, as the listing gives it. Texts are UTF-8.
struct StoredSymbol {
  SymbolId id = 0;
  std::string fqn;
  std::string name;
  std::string kind;
  std::string path;  // relative to the repository root, forward slashes, none at either end
  std::int64_t start_line = 0;
  std::int64_t end_line = 0;
  std::optional<std::string> signature;
  std::optional<std::string> docstring;
};

// A walk over the listed symbols: used by one thread, once from start to end.
class SymbolListing {
 public:
  virtual ~SymbolListing() = default;

  // The next symbol, or nothing after the last. May throw; the snapshot build then fails with that
  // error.
  virtual std::optional<StoredSymbol> next() = 0;

  // Brackets a run of short calls of `next` and of the test-path rule: a host whose calls are
  // expensive to enter one by one (behind an interpreter's lock, say) returns a token that keeps
  // the way in open; it is released on the same thread, soon. By default there is none.
  virtual HostValue hold() { return nullptr; }
};

class Repository {
 public:
  virtual ~Repository() = default;

  // The index's state now. Once at the start of every question, from the asking threads at the same
  // time, under no lock of the library: it must be cheap, whatever the number of symbols. Never
  // null. What it throws fails the question.
  virtual std::shared_ptr<const IndexFingerprint> retrieval_fingerprint() = 0;

  // The symbols whose language is in the first set and whose kind is in the second, each id once.
  // Once per index state, while the retriever's lock is held: one retriever never has two listings
  // open. The listing may read as it goes; it is released before the lock. Never null. What it
  // throws fails the question, and the previous snapshot stays.
  virtual std::unique_ptr<SymbolListing> retrievable_code_symbols(const StringSet& languages,
                                                                  const StringSet& kinds) = 0;

  // The ids of the `top_k` (at least 1) stored embeddings of the vector's model that are most
  // similar to it by cosine, most similar first. Fewer only when the store holds fewer; none when
  // it holds none of that model. May name symbols that the snapshot does not hold. Several times a
  // question, from the asking threads at the same time. What it throws fails the semantic channel.
  virtual std::vector<SymbolId> nearest_symbol_ids(const QueryVector& vector,
                                                   std::int64_t top_k) = 0;

  // The docstrings of the stored symbols of these ids; an id that the index no longer holds is
  // absent. Once per reranked question, from the asking threads at the same time. What it throws
  // fails the rerank.
  virtual std::unordered_map<SymbolId, std::optional<std::string>> get_symbols_by_ids(
      std::span<const SymbolId> ids) = 0;
};

}  // namespace retrieval
