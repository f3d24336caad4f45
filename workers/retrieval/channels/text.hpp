// The lexical and file channels: BM25 over the words of single symbols and of whole files.
//
// Both read the snapshot's text tables under its lock, which they hold from the start of their
// query to the end of their reading. A failure of the query throws SqliteError, with the lock
// released.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/retriever/records.hpp"
#include "retrieval/retriever/scope.hpp"

namespace retrieval {

// Ranks the `depth` best admitted symbols.
_Channel _lexical(const _Corpus& corpus, std::span<const std::string> terms, const Admission& admit,
                  std::int64_t depth);

// Gives the admitted symbols of the `best_files` best files their file's rank. A file without any
// takes no rank; below 1, every matching file ranks.
_Channel _files(const _Corpus& corpus, std::span<const std::string> terms, const Admission& admit,
                std::int64_t best_files);

}  // namespace retrieval
