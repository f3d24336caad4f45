// Classes and case of single ASCII characters, free of locales. Every other byte is in no class.
#pragma once

namespace retrieval::ascii {

constexpr bool is_upper(char c) noexcept { return c >= 'A' && c <= 'Z'; }
constexpr bool is_lower(char c) noexcept { return c >= 'a' && c <= 'z'; }
constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr char to_lower(char c) noexcept { return is_upper(c) ? static_cast<char>(c + 32) : c; }

}  // namespace retrieval::ascii
