#include "retrieval/query/words.hpp"

#include <algorithm>
#include <cstddef>
#include <unordered_set>
#include <utility>

#include "retrieval/query/ascii.hpp"

namespace retrieval {
namespace {

// Where the first character at or after `at` lies that is not of the class.
template <typename InClass>
std::size_t end_of_run(std::string_view text, std::size_t at, InClass in_class) {
  while (at < text.size() && in_class(text[at])) ++at;
  return at;
}

// Where the match of the word pattern that starts at `at` ends, or `at` when none starts there:
//
//   _WORD = [A-Z]+(?=[A-Z][a-z])|[A-Z]?[a-z]+|[A-Z]+|[0-9]+
//
// Once a run of capitals is known with what follows it, each alternative is decided without
// backtracking: before a lower-case letter the run gives up its last capital to the next word, or,
// when it is that single capital, starts the word itself.
std::size_t end_of_word(std::string_view text, std::size_t at) {
  if (ascii::is_upper(text[at])) {
    const std::size_t capitals = end_of_run(text, at, ascii::is_upper);
    if (capitals == text.size() || !ascii::is_lower(text[capitals])) return capitals;
    if (capitals - at > 1) return capitals - 1;
    return end_of_run(text, capitals, ascii::is_lower);
  }
  if (ascii::is_lower(text[at])) return end_of_run(text, at, ascii::is_lower);
  return end_of_run(text, at, ascii::is_digit);
}

// Calls `visit` with each word of the text, as written there.
template <typename Visit>
void for_each_word(std::string_view text, Visit visit) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = end_of_word(text, at);
    if (end == at) {
      ++at;
      continue;
    }
    visit(text.substr(at, end - at));
    at = end;
  }
}

void append_lower(std::string_view word, std::string& out) {
  for (const char c : word) out += ascii::to_lower(c);
}

std::string lower(std::string_view word) {
  std::string lowered;
  append_lower(word, lowered);
  return lowered;
}

}  // namespace

std::vector<std::string> split_identifier(std::string_view text) {
  std::vector<std::string> words;
  for_each_word(text, [&](std::string_view word) { words.push_back(lower(word)); });
  return words;
}

std::vector<std::string> query_terms(std::string_view text) {
  std::vector<std::string> terms;
  std::unordered_set<std::string> seen;
  for_each_word(text, [&](std::string_view word) {
    std::string term = lower(word);
    if (!STOP_WORDS.contains(term) && seen.insert(term).second) terms.push_back(std::move(term));
  });
  return terms;
}

bool is_test_query(std::span<const std::string> terms) {
  return std::ranges::any_of(
      terms, [](const std::string& term) { return TEST_QUERY_WORDS.contains(term); });
}

std::string _index_text(std::optional<std::string_view> text) {
  std::string words;
  if (text) _append_index_text(*text, words);
  return words;
}

void _append_index_text(std::string_view text, std::string& out) {
  const std::size_t start = out.size();
  for_each_word(text, [&](std::string_view word) {
    // Written first and taken back when it is a stop word, so that no word is copied twice.
    const std::size_t before = out.size();
    if (before > start) out += ' ';
    const std::size_t lowered = out.size();
    append_lower(word, out);
    if (STOP_WORDS.contains(std::string_view(out).substr(lowered))) out.resize(before);
  });
}

}  // namespace retrieval
