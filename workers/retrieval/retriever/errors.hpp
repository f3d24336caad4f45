// The errors of the library's own.
//
// A limit below 1 is a std::invalid_argument, a rerank position outside the candidates a
// std::out_of_range; errors of the host pass through as they are.
#pragma once

#include <stdexcept>
#include <string>

namespace retrieval {

// A statement of SQLite failed; `what()` is SQLite's message.
class SqliteError : public std::runtime_error {
 public:
  SqliteError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}

  // SQLite's primary result code.
  int code() const noexcept { return code_; }

 private:
  int code_;
};

// The fusion constant and a rank add up to zero.
class DivisionByZeroError : public std::domain_error {
 public:
  using std::domain_error::domain_error;
};

// The index listed a symbol of a kind that is not retrievable.
class UnknownKindError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace retrieval
