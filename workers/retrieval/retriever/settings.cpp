#include "retrieval/retriever/settings.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace retrieval {
namespace {

// The shortest decimal text of the weight, fixed for exponents from -4 to 15 and then with at least
// one digit after the point, scientific otherwise.
std::string decimal(double weight) {
  if (std::isnan(weight)) return "nan";
  std::array<char, 32> buffer{};
  const auto write = [&](std::chars_format format) {
    const auto end =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), weight, format).ptr;
    return std::string(buffer.data(), end);
  };
  std::string scientific = write(std::chars_format::scientific);
  const std::size_t e = scientific.find('e');
  if (e == std::string::npos) return scientific;  // an infinity
  const int exponent = std::atoi(scientific.c_str() + e + 1);
  if (exponent < -4 || exponent > 15) return scientific;
  std::string fixed = write(std::chars_format::fixed);
  if (fixed.find('.') == std::string::npos) fixed += ".0";
  return fixed;
}

}  // namespace

std::string LexicalWeights::rank_function() const {
  return _bm25(std::array{name, signature, path, docstring});
}

std::string FileWeights::rank_function() const {
  return _bm25(std::array{names, path, docstrings});
}

std::string _bm25(std::span<const double> weights) {
  std::string expression = "bm25(";
  for (std::string_view separator; const double weight : weights) {
    expression.append(separator).append(decimal(weight));
    separator = ", ";
  }
  return expression + ")";
}

}  // namespace retrieval
