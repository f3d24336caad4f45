#include "retrieval/retriever/notes.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "retrieval/query/unicode.hpp"

namespace retrieval {
namespace {

// What a channel ranks by, in the words of the note.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> _BASIS{
    {{EXACT, "name"}, {LEXICAL, "text"}, {FILE, "text"}, {SEMANTIC, "meaning"}}};

std::string_view basis_of(std::string_view channel) {
  return std::ranges::find(_BASIS, channel, &decltype(_BASIS)::value_type::first)->second;
}

void add_once(std::vector<std::string_view>& texts, std::string_view text) {
  if (std::ranges::find(texts, text) == texts.end()) texts.push_back(text);
}

std::string join(const std::vector<std::string_view>& texts, std::string_view separator) {
  std::string joined;
  for (std::string_view before; const std::string_view text : texts) {
    joined.append(before).append(text);
    before = separator;
  }
  return joined;
}

bool has_problem(const _Channel& channel) { return channel.problem && !channel.problem->empty(); }

}  // namespace

std::optional<std::string> _note(const _Channels& channels) {
  std::vector<std::string_view> missing;
  std::vector<std::string_view> bases;
  for (const auto& [name, channel] : channels) {
    if (has_problem(channel) && channel.status != PARTIAL) add_once(missing, *channel.problem);
    if (channel.status == OK || channel.status == PARTIAL) add_once(bases, basis_of(name));
  }
  std::string note;
  if (!missing.empty()) {
    note = "Ranked by " + (bases.empty() ? "nothing" : join(bases, " and ")) +
           " only: " + join(missing, "; ") + ".";
  }
  for (const auto& [name, channel] : channels) {
    if (!has_problem(channel) || channel.status != PARTIAL) continue;
    if (!note.empty()) note += ' ';
    note += unicode::with_upper_first(*channel.problem) + ".";
  }
  if (note.empty()) return std::nullopt;
  return note;
}

std::string _sentence_start(std::string_view message) { return unicode::with_lower_first(message); }

}  // namespace retrieval
