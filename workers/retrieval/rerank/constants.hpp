// What a caller may know of the rerank.
#pragma once

#include <cstdint>
#include <string_view>

namespace retrieval {

// How many unpinned hits a rerank may reorder.
inline constexpr std::int64_t RERANK_DEPTH = 12;

// The decision client's switch for it.
inline constexpr std::string_view RERANK_FEATURE = "explore_rerank_results";

}  // namespace retrieval
