#include "retrieval/corpus/tokenizer.hpp"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "retrieval/corpus/fts5.hpp"
#include "retrieval/query/ascii.hpp"

namespace retrieval {
namespace {

// FTS5 keeps no more bytes of a token.
constexpr std::size_t kLongestToken = 32768;

// The words of the option text, or none when it is more than plain words.
std::vector<std::string> plain_words(const std::string& option) {
  std::vector<std::string> words(1);
  for (const char c : option) {
    if (c == ' ') {
      if (!words.back().empty()) words.emplace_back();
    } else if (ascii::is_lower(c) || ascii::is_upper(c) || ascii::is_digit(c) || c == '_') {
      words.back() += c;
    } else {
      return {};
    }
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

struct Tokens {
  int count = 0;
  std::string& last;
};

int take_token(void* context, int /*flags*/, const char* token, int size, int /*start*/,
               int /*end*/) {
  auto& tokens = *static_cast<Tokens*>(context);
  ++tokens.count;
  tokens.last.assign(token, std::min(static_cast<std::size_t>(size), kLongestToken));
  return SQLITE_OK;
}

}  // namespace

struct Tokenizer::Handle {
  fts5_tokenizer calls{};
  Fts5Tokenizer* tokenizer = nullptr;

  Handle() = default;
  ~Handle() {
    if (tokenizer != nullptr) calls.xDelete(tokenizer);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
};

std::unique_ptr<Tokenizer> Tokenizer::word_by_word(const Database& database,
                                                   const std::string& option) {
  const std::vector<std::string> words = plain_words(option);
  fts5_api* api = fts5_of(database);
  if (words.empty() || api == nullptr) return nullptr;

  auto handle = std::make_unique<Handle>();
  void* context = nullptr;
  if (api->xFindTokenizer(api, words.front().c_str(), &context, &handle->calls) != SQLITE_OK) {
    return nullptr;
  }
  std::vector<const char*> arguments;
  for (const std::string& word : std::span(words).subspan(1)) arguments.push_back(word.c_str());
  if (handle->calls.xCreate(context, arguments.data(), static_cast<int>(arguments.size()),
                            &handle->tokenizer) != SQLITE_OK) {
    handle->tokenizer = nullptr;
    return nullptr;
  }

  // FTS5's tokenizers either class characters one by one (ascii, unicode61, and porter around them)
  // or look across words (trigram). What tells them apart is how they take single characters.
  std::unique_ptr<Tokenizer> tokenizer(new Tokenizer(std::move(handle)));
  if (tokenizer->tokenize(" ") != 0 || tokenizer->tokenize("a b") != 2) return nullptr;
  for (char c = '\0'; c < '\x7f'; ++c) {
    const bool in_words = ascii::is_lower(c) || ascii::is_digit(c);
    if (in_words && tokenizer->tokenize({&c, 1}) != 1) return nullptr;
  }
  return tokenizer;
}

Tokenizer::Tokenizer(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}

Tokenizer::~Tokenizer() = default;

const std::string& Tokenizer::stem(std::string_view word) {
  tokenize(word);
  return token_;
}

int Tokenizer::tokenize(std::string_view text) {
  Tokens tokens{.last = token_};
  const int code = handle_->calls.xTokenize(handle_->tokenizer, &tokens, FTS5_TOKENIZE_DOCUMENT,
                                            text.data(), static_cast<int>(text.size()), take_token);
  if (code != SQLITE_OK) throw SqliteError(code, sqlite3_errstr(code));
  return tokens.count;
}

}  // namespace retrieval
