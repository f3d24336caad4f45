// Code-like words and query names: which words of a question could be names in code.
//
// Where the search terms split build_context_pack into three words, a name stays whole and as
// written. Both functions are pure and fail for no input.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace retrieval {

// Whether the word is spelled like a name in code (effective_action, $scope, x2, iOS, Offloader)
// rather than like a word of prose (music, PDF). Digits and letter case are judged by the
// characters' Unicode properties.
bool reads_as_code(std::string_view word);

// The words of the query that could be names in code, whole and as written, each once, in order of
// first appearance. Stop words are dropped, unless one is the whole query.
std::vector<std::string> query_names(std::string_view query);

}  // namespace retrieval
