#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "convert.hpp"
#include "errors.hpp"
#include "module.hpp"

namespace retrieval::python {
namespace {

template <typename Words>
nb::object frozen_set(const Words& words) {
  nb::set set;
  for (const std::string_view word : words) set.add(from_text(word));
  return nb::steal(PyFrozenSet_New(set.ptr()));
}

nb::list from_words(const std::vector<std::string>& words) {
  nb::list list;
  for (const std::string& word : words) list.append(from_text(word));
  return list;
}

nb::dict from_ranks(const RankMap& ranks) {
  nb::dict dict;
  for (const auto& [id, rank] : ranks) dict[nb::int_(id)] = rank;
  return dict;
}

OrderedMap<std::string, RankMap> to_rankings(const nb::object& rankings) {
  OrderedMap<std::string, RankMap> converted;
  for (const nb::handle entry : rankings.attr("items")()) {
    RankMap ranks;
    for (const nb::handle place : entry[1].attr("items")()) {
      ranks.emplace_back(to_integer(place[0], "a symbol id in rankings"),
                         to_integer(place[1], "a rank in rankings"));
    }
    converted.emplace_back(to_text(entry[0], "a channel name in rankings"), std::move(ranks));
  }
  return converted;
}

nb::list fuse(const nb::object& rankings, const nb::object& k) {
  try {
    nb::list fused;
    for (const FusedSymbol& symbol :
         reciprocal_rank_fusion(to_rankings(rankings), to_integer(k, "k"))) {
      nb::dict ranks;
      for (const auto& [channel, rank] : symbol.ranks) ranks[from_text(channel)] = rank;
      fused.append(nb::make_tuple(symbol.id, symbol.score, ranks));
    }
    return fused;
  } catch (...) {
    raise_current();
  }
}

}  // namespace

void add_constants(nb::module_& module) {
  const auto add = [&](const char* name, std::string_view text) {
    module.attr(name) = from_text(text);
  };
  add("EXACT", EXACT);
  add("LEXICAL", LEXICAL);
  add("FILE", FILE);
  add("SEMANTIC", SEMANTIC);
  add("OK", OK);
  add("PARTIAL", PARTIAL);
  add("UNAVAILABLE", UNAVAILABLE);
  add("FAILED", FAILED);
  add("RERANK_FEATURE", RERANK_FEATURE);
  module.attr("RERANK_DEPTH") = RERANK_DEPTH;
  nb::list channels;
  for (const std::string_view channel : CHANNELS) channels.append(from_text(channel));
  module.attr("CHANNELS") = nb::tuple(channels);
  module.attr("STOP_WORDS") = frozen_set(STOP_WORDS);
  module.attr("TEST_QUERY_WORDS") = frozen_set(TEST_QUERY_WORDS);
}

void add_functions(nb::module_& module) {
  module.def(
      "split_identifier",
      [](const nb::object& text) { return from_words(split_identifier(to_text(text, "text"))); },
      nb::arg("text").none(), nb::sig("def split_identifier(text: str) -> list[str]"),
      "The lower-case words of the text, in order, repeats kept: getHTTPResponse_v2 gives get, "
      "http, response, v, 2.");
  module.def(
      "query_terms",
      [](const nb::object& text) { return from_words(query_terms(to_text(text, "text"))); },
      nb::arg("text").none(), nb::sig("def query_terms(text: str) -> list[str]"),
      "The search terms of a question: its words without stop words, each once, in order.");
  module.def(
      "is_test_query",
      [](const nb::object& terms) {
        for (const nb::handle term : terms) {
          const std::array word{to_text(term, "a term of terms")};
          if (is_test_query(word)) return true;
        }
        return false;
      },
      nb::arg("terms").none(),
      nb::sig("def is_test_query(terms: collections.abc.Iterable[str]) -> bool"),
      "Whether one of the terms says that a question is about tests.");
  module.def(
      "query_names",
      [](const nb::object& query) { return from_words(query_names(to_text(query, "query"))); },
      nb::arg("query").none(), nb::sig("def query_names(query: str) -> list[str]"),
      "The words of the query that could be names in code, whole and as written, each once.");
  module.def(
      "reads_as_code", [](const nb::object& word) { return reads_as_code(to_text(word, "word")); },
      nb::arg("word").none(), nb::sig("def reads_as_code(word: str) -> bool"),
      "Whether the word is spelled like a name in code rather than a word of prose.");
  module.def(
      "ranks_in_order",
      [](const nb::object& ids) {
        std::vector<SymbolId> list;
        for (const nb::handle id : ids) list.push_back(to_integer(id, "a symbol id of ids"));
        return from_ranks(ranks_in_order(list));
      },
      nb::arg("ids").none(),
      nb::sig("def ranks_in_order(ids: collections.abc.Iterable[int]) -> dict[int, int]"),
      "Each distinct id of a best-first list with its 1-based rank, without gaps.");
  module.def(
      "reciprocal_rank_fusion", &fuse, nb::arg("rankings").none(), nb::arg("k") = 60,
      nb::sig("def reciprocal_rank_fusion("
              "rankings: collections.abc.Mapping[str, collections.abc.Mapping[int, int]], "
              "k: int = 60) -> list[tuple[int, float, dict[str, int]]]"),
      "Every ranked id as (id, score, ranks by channel), best first: an id at rank r of a channel "
      "earns 1 / (k + r) there. Ties go to the better best rank, then to the lower id.\n\n"
      "Raises ZeroDivisionError when k and a rank add up to 0.");
  module.def(
      "_bm25",
      [](const nb::args& weights) {
        std::vector<double> numbers;
        for (const nb::handle weight : weights) numbers.push_back(nb::cast<double>(weight));
        return from_text(_bm25(numbers));
      },
      nb::sig("def _bm25(*weights: float) -> str"),
      "The FTS5 rank expression for column weights, in column order.");
}

}  // namespace retrieval::python
