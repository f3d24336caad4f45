#include "retrieval/channels/text.hpp"

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "retrieval/channels/fusion.hpp"
#include "retrieval/corpus/text_tables.hpp"
#include "retrieval/retriever/notes.hpp"

namespace retrieval {
namespace {

_Channel without_tables() {
  return {.ranks = {}, .status = UNAVAILABLE, .problem = std::string(_NO_FTS5)};
}

}  // namespace

_Channel _lexical(const _Corpus& corpus, std::span<const std::string> terms, const Admission& admit,
                  std::int64_t depth) {
  if (corpus.fts == nullptr) return without_tables();
  std::vector<SymbolId> ids;
  if (!terms.empty()) {
    _Matching matching = _matching(*corpus.fts, corpus.fts_lock, _SYMBOL_TABLE, terms);
    while (const std::optional<SymbolId> id = matching.next()) {
      if (!admit(*id)) continue;
      ids.push_back(*id);
      if (std::cmp_equal(ids.size(), depth)) break;
    }
  }
  return {.ranks = ranks_in_order(ids)};
}

_Channel _files(const _Corpus& corpus, std::span<const std::string> terms, const Admission& admit,
                std::int64_t best_files) {
  if (corpus.fts == nullptr) return without_tables();
  RankMap ranks;
  if (!terms.empty()) {
    std::int64_t rank = 0;
    _Matching matching = _matching(*corpus.fts, corpus.fts_lock, _FILE_TABLE, terms);
    while (const std::optional<std::int64_t> row = matching.next()) {
      const std::size_t ranked = ranks.size();
      for (const SymbolId id : corpus.files[*row].ids) {
        if (admit(id)) ranks.emplace_back(id, rank + 1);
      }
      if (ranks.size() == ranked) continue;
      ++rank;
      if (rank == best_files) break;
    }
  }
  return {.ranks = std::move(ranks)};
}

}  // namespace retrieval
