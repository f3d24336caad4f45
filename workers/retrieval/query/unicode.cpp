#include "retrieval/query/unicode.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/stringpiece.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "retrieval/query/ascii.hpp"

namespace retrieval::unicode {
namespace {

// A code point, or less than 0 for bytes that are not well-formed, and how many bytes it takes.
struct Character {
  UChar32 value;
  std::size_t size;
};

Character first_of(std::string_view text) {
  const std::string_view window = text.substr(0, U8_MAX_LENGTH);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(window.data());
  std::int32_t end = 0;
  UChar32 value = 0;
  U8_NEXT(bytes, end, static_cast<std::int32_t>(window.size()), value);
  return {value, static_cast<std::size_t>(end)};
}

Character last_of(std::string_view text) {
  const std::string_view window =
      text.substr(text.size() - std::min<std::size_t>(text.size(), U8_MAX_LENGTH));
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(window.data());
  auto start = static_cast<std::int32_t>(window.size());
  UChar32 value = 0;
  U8_PREV(bytes, 0, start, value);
  return {value, window.size() - static_cast<std::size_t>(start)};
}

using CaseMapping = void (*)(const char*, std::uint32_t, icu::StringPiece, icu::ByteSink&,
                             icu::Edits*, UErrorCode&);

// Maps the well-formed stretches one by one. What lies between them is no letter, so that no
// mapping looks across it.
std::string map_case(std::string_view text, CaseMapping mapping) {
  std::string mapped;
  mapped.reserve(text.size());
  icu::StringByteSink<std::string> sink(&mapped);
  const auto map_stretch = [&](std::size_t start, std::size_t end) {
    if (start == end) return;
    UErrorCode error = U_ZERO_ERROR;
    mapping("", 0, icu::StringPiece(text.data() + start, static_cast<std::int32_t>(end - start)),
            sink, nullptr, error);
    if (U_FAILURE(error)) throw std::runtime_error("mapping the case of a text failed");
  };
  std::size_t start = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = first_of(text.substr(at));
    if (character.value < 0) {
      map_stretch(start, at);
      mapped.append(text, at, character.size);
      start = at + character.size;
    }
    at += character.size;
  }
  map_stretch(start, text.size());
  return mapped;
}

std::string with_first(std::string_view text, CaseMapping mapping) {
  if (text.empty()) return {};
  const std::size_t size = first_of(text).size;
  return map_case(text.substr(0, size), mapping).append(text.substr(size));
}

bool is_digit(UChar32 character) {
  const int type = u_getIntPropertyValue(character, UCHAR_NUMERIC_TYPE);
  return type == U_NT_DECIMAL || type == U_NT_DIGIT;
}

bool is_space(UChar32 character) { return character >= 0 && u_isspace(character); }

}  // namespace

std::string lower_case(std::string_view text) {
  if (std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), ascii::to_lower);
    return lower;
  }
  return map_case(text, icu::CaseMap::utf8ToLower);
}

std::string with_upper_first(std::string_view text) {
  return with_first(text, icu::CaseMap::utf8ToUpper);
}

std::string with_lower_first(std::string_view text) {
  return with_first(text, icu::CaseMap::utf8ToLower);
}

std::string_view strip(std::string_view text) {
  while (!text.empty()) {
    const Character first = first_of(text);
    if (!is_space(first.value)) break;
    text.remove_prefix(first.size);
  }
  while (!text.empty()) {
    const Character last = last_of(text);
    if (!is_space(last.value)) break;
    text.remove_suffix(last.size);
  }
  return text;
}

bool has_digit(std::string_view text) {
  while (!text.empty()) {
    const Character first = first_of(text);
    if (first.value >= 0 && is_digit(first.value)) return true;
    text.remove_prefix(first.size);
  }
  return false;
}

bool is_capitalised(std::string_view text) {
  if (text.empty()) return false;
  const Character first = first_of(text);
  if (first.value < 0 || !u_isUUppercase(first.value) || first.size == text.size()) return false;
  const Character second = first_of(text.substr(first.size));
  return second.value >= 0 && u_isULowercase(second.value);
}

std::size_t length(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

}  // namespace retrieval::unicode
