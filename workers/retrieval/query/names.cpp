#include "retrieval/query/names.hpp"

#include <algorithm>
#include <cstddef>
#include <unordered_set>

#include "retrieval/query/ascii.hpp"
#include "retrieval/query/unicode.hpp"
#include "retrieval/query/words.hpp"

namespace retrieval {
namespace {

// _NAME = [A-Za-z_$][A-Za-z0-9_$]*
constexpr bool starts_name(char c) {
  return ascii::is_upper(c) || ascii::is_lower(c) || c == '_' || c == '$';
}
constexpr bool continues_name(char c) { return starts_name(c) || ascii::is_digit(c); }

// Whether _MIXED_CASE = [a-z0-9][A-Z]|[A-Z]{2}[a-z] matches somewhere in the word.
bool has_mixed_case(std::string_view word) {
  for (std::size_t i = 0; i + 1 < word.size(); ++i) {
    if (!ascii::is_upper(word[i + 1])) continue;
    if (ascii::is_lower(word[i]) || ascii::is_digit(word[i])) return true;
    if (ascii::is_upper(word[i]) && i + 2 < word.size() && ascii::is_lower(word[i + 2]))
      return true;
  }
  return false;
}

std::vector<std::string_view> names_in(std::string_view query) {
  std::vector<std::string_view> names;
  for (std::size_t at = 0; at < query.size();) {
    if (!starts_name(query[at])) {
      ++at;
      continue;
    }
    const std::size_t start = at;
    while (at < query.size() && continues_name(query[at])) ++at;
    names.push_back(query.substr(start, at - start));
  }
  return names;
}

bool is_stop_word(std::string_view name) {
  std::string lower(name);
  std::ranges::transform(lower, lower.begin(), ascii::to_lower);
  return STOP_WORDS.contains(lower);
}

}  // namespace

bool reads_as_code(std::string_view word) {
  return word.find_first_of("_$") != std::string_view::npos || unicode::has_digit(word) ||
         has_mixed_case(word) || unicode::is_capitalised(word);
}

std::vector<std::string> query_names(std::string_view query) {
  const std::vector<std::string_view> found = names_in(query);
  if (found.size() == 1) return {std::string(found.front())};
  std::vector<std::string> names;
  std::unordered_set<std::string_view> seen;
  for (const std::string_view name : found) {
    if (!is_stop_word(name) && seen.insert(name).second) names.emplace_back(name);
  }
  return names;
}

}  // namespace retrieval
