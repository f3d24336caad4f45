#include "retrieval/retriever/scope.hpp"

#include <algorithm>

#include "retrieval/query/unicode.hpp"

namespace retrieval {

std::optional<std::string> _normalize_scope(std::optional<std::string_view> scope) {
  if (!scope) return std::nullopt;
  std::string text(unicode::strip(*scope));
  std::ranges::replace(text, '\\', '/');
  std::string_view rest = text;
  while (rest.starts_with("./")) rest.remove_prefix(2);
  while (rest.starts_with('/')) rest.remove_prefix(1);
  while (rest.ends_with('/')) rest.remove_suffix(1);
  if (rest.empty() || rest == ".") return std::nullopt;
  return std::string(rest);
}

bool _in_scope(std::string_view path, std::optional<std::string_view> scope) {
  if (!scope) return true;
  return path.starts_with(*scope) && (path.size() == scope->size() || path[scope->size()] == '/');
}

bool Admission::operator()(SymbolId id) const {
  const SymbolTable::Row* symbol = corpus_.symbols.find(id);
  if (symbol == nullptr) return false;
  if (!tests_allowed_ && corpus_.in_tests(*symbol)) return false;
  return _in_scope(corpus_.path_of(*symbol), scope_);
}

}  // namespace retrieval
