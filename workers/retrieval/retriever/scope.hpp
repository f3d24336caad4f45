// Scope and admission: which symbols may answer a question.
//
// A scope is a file or a folder, written as the index writes paths, or absent for the whole
// repository. Everything here is pure or reads an immutable snapshot; any thread may call it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/retriever/records.hpp"

namespace retrieval {

// The scope as the index writes paths: without white space, "./" and slashes around it, backslashes
// turned. Absent for the whole repository.
std::optional<std::string> _normalize_scope(std::optional<std::string_view> scope);

// Whether the path is the normalised scope or lies in it.
bool _in_scope(std::string_view path, std::optional<std::string_view> scope);

// The admission filter of one question. Its snapshot must outlive it.
class Admission {
 public:
  Admission(const _Corpus& corpus, bool tests_allowed, std::optional<std::string> scope)
      : corpus_(corpus), tests_allowed_(tests_allowed), scope_(std::move(scope)) {}

  // Whether the symbol may answer: the snapshot holds it, tests are allowed where it is one, and it
  // lies in scope.
  bool operator()(SymbolId id) const;

 private:
  const _Corpus& corpus_;
  bool tests_allowed_;
  std::optional<std::string> scope_;
};

}  // namespace retrieval
