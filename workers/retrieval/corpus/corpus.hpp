// The corpus snapshot: what one state of the index holds for retrieval.
//
// A snapshot is built whole by `_build_corpus`, on the thread of the question that found the cache
// stale, and never changed afterwards. Any number of threads read it without a lock, but for its
// text tables, which are used under `fts_lock`. It owns its database, which closes with it, when
// its last holder lets go.
#pragma once

#include <memory>
#include <mutex>
#include <span>
#include <string_view>

#include "retrieval/corpus/string_pool.hpp"
#include "retrieval/corpus/symbols.hpp"
#include "retrieval/corpus/text_tables.hpp"
#include "retrieval/host/code_rules.hpp"
#include "retrieval/host/log.hpp"
#include "retrieval/host/repository.hpp"
#include "retrieval/retriever/records.hpp"
#include "retrieval/retriever/settings.hpp"

namespace retrieval {

struct _Corpus {
  std::shared_ptr<const IndexFingerprint> fingerprint;  // the state it was built from
  StringPool texts;
  SymbolTable symbols;
  NameTable by_name;
  FileTable files;
  std::unique_ptr<TextTables> fts;  // null when this SQLite has no FTS5
  mutable std::mutex fts_lock;

  // The symbol as a hit carries it. The id must be one of `symbols`.
  RetrievedSymbol symbol(SymbolId id) const;

  std::string_view path_of(const SymbolTable::Row& symbol) const {
    return texts[files[symbol.file].path];
  }
  bool in_tests(const SymbolTable::Row& symbol) const { return files[symbol.file].in_tests; }

  std::span<const std::string_view> names_starting_with(std::string_view prefix) const {
    return by_name.starting_with(prefix);
  }
};

// Reads the retrievable symbols of the index once and makes a snapshot of them, labelled with the
// fingerprint. Called under the retriever's lock; what the listing, the test-path rule or SQLite
// throws leaves it, and no snapshot is made. A kind that is not retrievable throws
// UnknownKindError.
std::shared_ptr<const _Corpus> _build_corpus(Repository& repository,
                                             std::shared_ptr<const IndexFingerprint> fingerprint,
                                             const RetrievalSettings& settings,
                                             const CodeRules& rules, Log& log);

}  // namespace retrieval
