// How a retriever ranks: plain values whose defaults are the tuned ranking.
//
// Nothing validates them; a zero, a negative number or an unknown tokenizer does what follows from
// it where it is read.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace retrieval {

// The BM25 weight of each column of the symbol table, in column order.
struct LexicalWeights {
  double name = 10.0;
  double signature = 3.0;
  double path = 2.0;
  double docstring = 1.0;

  // The FTS5 rank expression of these weights.
  std::string rank_function() const;

  bool operator==(const LexicalWeights&) const = default;
};

// The BM25 weight of each column of the file table, in column order.
struct FileWeights {
  double names = 3.0;
  double path = 2.0;
  double docstrings = 1.0;

  // The FTS5 rank expression of these weights.
  std::string rank_function() const;

  bool operator==(const FileWeights&) const = default;
};

struct RetrievalSettings {
  // The fusion constant: a symbol at rank r of a channel scores 1 / (rrf_k + r) there.
  std::int64_t rrf_k = 60;
  // How many symbols each list channel hands to the fusion; a larger limit takes its place.
  std::int64_t depth = 50;
  // How many nearest embeddings the semantic channel searches first, and at most.
  std::int64_t semantic_shortlist = 150;
  std::int64_t semantic_max_neighbours = 2400;
  // How many of the best-matching files rank their symbols in the file channel.
  std::int64_t best_files = 1;
  LexicalWeights weights = {};
  FileWeights file_weights = {};
  // The FTS5 tokenizer of both text tables: by default the porter stemmer over unicode61, so that
  // the inflections of an English word meet.
  std::string tokenizer = "porter unicode61";

  bool operator==(const RetrievalSettings&) const = default;
};

// The FTS5 rank expression for any number of column weights, in column order: bm25(10.0, 3.0). A
// weight is written as the shortest decimal text that reads back as the same number.
std::string _bm25(std::span<const double> weights);

}  // namespace retrieval
