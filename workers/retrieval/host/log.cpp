#include "retrieval/host/log.hpp"

#include <cmath>
#include <cstddef>

namespace retrieval {
namespace {

std::string quoted(std::string_view text) {
  std::string literal = "'";
  for (const char c : text) {
    if (c == '\n') {
      literal += "\\n";
      continue;
    }
    if (c == '\'' || c == '\\') literal += '\\';
    literal += c;
  }
  return literal + "'";
}

struct Render {
  char conversion;
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const { return std::to_string(std::llround(number)); }
  std::string operator()(const std::string& text) const {
    return conversion == 'r' ? quoted(text) : text;
  }
  std::string operator()(const std::exception_ptr& error) const { return message_of(error); }
};

}  // namespace

std::string log_text(const LogRecord& record) {
  std::string text;
  auto argument = record.arguments.begin();
  for (std::size_t at = 0; at < record.format.size(); ++at) {
    if (record.format[at] != '%' || argument == record.arguments.end()) {
      text += record.format[at];
      continue;
    }
    at = record.format.find_first_of("dsrf", at);
    text += std::visit(Render{record.format[at]}, *argument++);
  }
  return text;
}

std::string message_of(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "unknown error";
  }
}

}  // namespace retrieval
