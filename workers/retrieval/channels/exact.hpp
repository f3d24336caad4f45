// The exact channel: the symbols that a question names.
//
// A pure function over a snapshot; it takes no lock and throws nothing of its own.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/retriever/scope.hpp"

namespace retrieval {

// The fewest characters by which a word stands for the names that start with it.
inline constexpr std::size_t _MIN_PREFIX = 3;

struct ExactNames {
  std::vector<SymbolId> ids;            // best first, each once, at most `depth`
  std::unordered_set<SymbolId> pinned;  // for membership; not cut at `depth`
};

// The symbols whose name is a word of the query, whatever its case, then those whose name starts
// with such a word, shortest name first. A word that reads as code, or that is the query's only
// name, pins the symbols of its name and stands for the longer names; a word of prose does neither.
ExactNames _exact(const _Corpus& corpus, std::string_view query, const Admission& admit,
                  std::int64_t depth);

}  // namespace retrieval
