// The one-line note that tells a caller which channels could not rank, or ranked only in part.
//
// Pure functions over the channels' problem texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "retrieval/retriever/records.hpp"

namespace retrieval {

// The problem of the text channels when the text tables could not be made.
inline constexpr std::string_view _NO_FTS5 = "this SQLite has no FTS5 for text search";

// The rerank's note, a whole sentence, when the decision model could not order the hits.
inline constexpr std::string_view _RERANK_FAILED =
    "The decision model could not rerank the hits (see the log); they keep the retriever's order.";

// The note on what the ranking had to do without or did only in part; absent when there is nothing
// to say. Every key is one of CHANNELS.
std::optional<std::string> _note(const _Channels& channels);

// A message that begins a sentence, as the middle of one: its first character in lower case.
std::string _sentence_start(std::string_view message);

}  // namespace retrieval
