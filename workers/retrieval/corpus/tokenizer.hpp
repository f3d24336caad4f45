// FTS5's own tokenizer, applied to single words.
//
// Used by one thread at a time, no longer than its database lives.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "retrieval/corpus/sqlite.hpp"

namespace retrieval {

class Tokenizer {
 public:
  // The tokenizer of FTS5's option text, such as "porter unicode61", when it makes exactly one
  // token of each word of lower-case letters or digits, whatever stands beside it; null otherwise,
  // or when the text is more than plain words.
  static std::unique_ptr<Tokenizer> word_by_word(const Database& database,
                                                 const std::string& option);

  ~Tokenizer();
  Tokenizer(const Tokenizer&) = delete;
  Tokenizer& operator=(const Tokenizer&) = delete;

  // The token that FTS5 keeps for the word; valid until the next call.
  const std::string& stem(std::string_view word);

 private:
  struct Handle;
  explicit Tokenizer(std::unique_ptr<Handle> handle);

  // How many tokens the text gives; `token_` is then the last of them.
  int tokenize(std::string_view text);

  std::unique_ptr<Handle> handle_;
  std::string token_;
};

}  // namespace retrieval
