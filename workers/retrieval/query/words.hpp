// Word splitting and search terms: how text becomes the words that the text channels compare.
//
// One splitting rule serves queries and indexed text alike, so that the words of a question and
// those of a symbol meet however an identifier is cased or joined. Words are ASCII: every other
// character, letters included, separates words.
//
// All functions are pure and fail for no input; any bytes may be given.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "retrieval/query/word_set.hpp"

namespace retrieval {

// Words too common to tell one symbol from another, contraction fragments included.
inline constexpr WordSet STOP_WORDS{std::to_array<std::string_view>({
    "a",          "about",      "above",  "after", "again",     "against", "all",     "am",
    "an",         "and",        "any",    "are",   "as",        "at",      "be",      "because",
    "been",       "before",     "being",  "below", "between",   "both",    "but",     "by",
    "can",        "could",      "d",      "did",   "do",        "does",    "doing",   "down",
    "during",     "each",       "few",    "for",   "from",      "further", "had",     "has",
    "have",       "having",     "he",     "her",   "here",      "hers",    "herself", "him",
    "himself",    "his",        "how",    "i",     "if",        "in",      "into",    "is",
    "it",         "its",        "itself", "just",  "ll",        "m",       "may",     "me",
    "might",      "more",       "most",   "must",  "my",        "myself",  "need",    "no",
    "nor",        "not",        "now",    "of",    "off",       "on",      "once",    "only",
    "or",         "other",      "our",    "ours",  "ourselves", "out",     "over",    "own",
    "re",         "s",          "same",   "shall", "she",       "should",  "so",      "some",
    "such",       "t",          "than",   "that",  "the",       "their",   "theirs",  "them",
    "themselves", "then",       "there",  "these", "they",      "this",    "those",   "through",
    "to",         "too",        "under",  "until", "up",        "ve",      "very",    "was",
    "we",         "were",       "what",   "when",  "where",     "which",   "while",   "who",
    "whom",       "why",        "will",   "with",  "would",     "you",     "your",    "yours",
    "yourself",   "yourselves",
})};

// Words that say that a question is about tests.
inline constexpr WordSet TEST_QUERY_WORDS{std::to_array<std::string_view>({
    "conftest",
    "fixture",
    "fixtures",
    "jest",
    "mock",
    "mocks",
    "pytest",
    "spec",
    "specs",
    "test",
    "testing",
    "tests",
    "unittest",
    "vitest",
})};

// The lower-case words of `text`, in order, repeats kept: getHTTPResponse_v2 gives get, http,
// response, v, 2.
std::vector<std::string> split_identifier(std::string_view text);

// The search terms of a question: its words without stop words, each once, in order of first
// appearance.
std::vector<std::string> query_terms(std::string_view text);

// Whether one of the terms is a test word.
bool is_test_query(std::span<const std::string> terms);

// The words that a text table indexes for one field, separated by single spaces: stop words
// dropped, repeats kept; empty when the text is absent or holds no other word.
std::string _index_text(std::optional<std::string_view> text);

// Appends what `_index_text` gives to `out`, without a copy on the way.
void _append_index_text(std::string_view text, std::string& out);

}  // namespace retrieval
