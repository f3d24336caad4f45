// Unicode text as this library needs it, on top of ICU: case mappings, white space, character
// classes and counts over UTF-8.
//
// The mappings are the full ones of the Unicode standard without a language (final sigma and the
// dotted capital I included), which is also what Python's `str` methods give. Bytes that are not
// well-formed UTF-8, the three bytes of a lone surrogate among them, are kept as they are and
// belong to no class. Byte order of UTF-8 is code-point order, so texts compare as they are.
//
// All functions are pure and may run on any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace retrieval::unicode {

std::string lower_case(std::string_view text);

// The text with its first character in upper or lower case, the rest unchanged.
std::string with_upper_first(std::string_view text);
std::string with_lower_first(std::string_view text);

// The text without the white space at its ends: the space separators of Unicode and the control
// characters that separate lines, paragraphs, segments or words.
std::string_view strip(std::string_view text);

// Whether one of the characters is a digit.
bool has_digit(std::string_view text);

// Whether the first character is an upper-case letter and the second a lower-case one.
bool is_capitalised(std::string_view text);

// How many code points the text holds.
std::size_t length(std::string_view text);

}  // namespace retrieval::unicode
