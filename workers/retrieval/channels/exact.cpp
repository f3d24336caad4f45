#include "retrieval/channels/exact.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <span>
#include <string>

#include "retrieval/query/names.hpp"
#include "retrieval/query/unicode.hpp"

namespace retrieval {
namespace {

void append_admitted(std::vector<SymbolId>& ids, std::span<const SymbolId> found,
                     const Admission& admit) {
  std::ranges::copy_if(found, std::back_inserter(ids), admit);
}

// The names in the order in which a word stands for them: shortest first.
std::vector<std::string_view> shortest_first(std::span<const std::string_view> names) {
  std::vector<std::string_view> sorted(names.begin(), names.end());
  std::ranges::stable_sort(sorted, {}, unicode::length);
  return sorted;
}

}  // namespace

ExactNames _exact(const _Corpus& corpus, std::string_view query, const Admission& admit,
                  std::int64_t depth) {
  const std::vector<std::string> words = query_names(query);
  const auto is_looked_up = [&](const std::string& word) {
    return words.size() == 1 || reads_as_code(word);
  };
  ExactNames names;
  std::vector<SymbolId> found;
  for (const std::string& word : words) {
    const std::size_t start = found.size();
    append_admitted(found, corpus.by_name.ids_of(unicode::lower_case(word)), admit);
    if (is_looked_up(word))
      names.pinned.insert(found.begin() + static_cast<std::ptrdiff_t>(start), found.end());
  }
  const std::size_t exact = found.size();
  for (const std::string& word : words) {
    if (!is_looked_up(word) || unicode::length(word) < _MIN_PREFIX) continue;
    for (const std::string_view name :
         shortest_first(corpus.names_starting_with(unicode::lower_case(word)))) {
      append_admitted(found, corpus.by_name.ids_of(name), admit);
      if (std::cmp_greater_equal(found.size() - exact, depth)) break;
    }
  }
  std::unordered_set<SymbolId> seen;
  for (const SymbolId id : found) {
    if (std::cmp_greater_equal(names.ids.size(), depth)) break;
    if (seen.insert(id).second) names.ids.push_back(id);
  }
  return names;
}

}  // namespace retrieval
