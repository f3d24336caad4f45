// Result records and channel report: the values that flow out of the retriever and between its
// channels.
//
// All are plain values, equal when all their fields are; a result is made once, belongs to its
// caller and stays valid for as long as the caller keeps it, whatever the index does meanwhile.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace retrieval {

// The host's id of a symbol; also its row id in the symbol text table.
using SymbolId = std::int64_t;

// Channel names.
inline constexpr std::string_view EXACT = "exact";
inline constexpr std::string_view LEXICAL = "lexical";
inline constexpr std::string_view FILE = "file";
inline constexpr std::string_view SEMANTIC = "semantic";
inline constexpr std::array CHANNELS{EXACT, LEXICAL, FILE, SEMANTIC};

// Channel statuses.
inline constexpr std::string_view OK = "ok";                    // ranked in full
inline constexpr std::string_view PARTIAL = "partial";          // ranked, but searched too little
inline constexpr std::string_view UNAVAILABLE = "unavailable";  // lacks what it needs
inline constexpr std::string_view FAILED = "failed";            // stopped by an error

// A small map that keeps its entries in the order in which they were added.
template <typename Key, typename Value>
using OrderedMap = std::vector<std::pair<Key, Value>>;

// Symbol id to 1-based rank, best first; symbols of equal rank tie. Each id occurs once.
using RankMap = OrderedMap<SymbolId, std::int64_t>;

// Channel name to the rank of one symbol there; a channel that did not find it has no entry.
using RanksByChannel = OrderedMap<std::string, std::int64_t>;

// A code symbol of the index, as a hit carries it.
struct RetrievedSymbol {
  SymbolId id = 0;
  std::string fqn;   // fully qualified name
  std::string name;  // its own name
  std::string kind;  // one of the host's kinds
  std::string path;  // relative to the repository root, forward slashes
  std::int64_t start_line = 0;
  std::int64_t end_line = 0;
  std::optional<std::string> signature;

  bool operator==(const RetrievedSymbol&) const = default;
};

// One answer.
struct Hit {
  RetrievedSymbol symbol;
  double score = 0.0;    // its fused score
  RanksByChannel ranks;  // in the order of CHANNELS

  bool operator==(const Hit&) const = default;
};

// The answer to one question.
struct RetrievalResult {
  std::vector<Hit> hits;                                    // best first
  OrderedMap<std::string_view, std::string_view> channels;  // name to status, all four
  std::optional<std::string> note = std::nullopt;           // never empty when present

  bool operator==(const RetrievalResult&) const = default;
};

// What one channel produced for a question.
struct _Channel {
  RankMap ranks;
  std::string_view status = OK;
  // What went wrong or was cut short, as the middle of a sentence.
  std::optional<std::string> problem = std::nullopt;

  bool operator==(const _Channel&) const = default;
};

using _Channels = OrderedMap<std::string_view, _Channel>;

}  // namespace retrieval
