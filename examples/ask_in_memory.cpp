// The smallest host: an index held in a vector, asked one question.
//
//   ask_in_memory "where is the config parsed?"

#include <cstdio>
#include <memory>
#include <utility>

#include "retrieval/retrieval.hpp"

namespace {

// Counts the changes of the index; two readings differ exactly when it changed in between.
struct Version final : retrieval::IndexFingerprint {
  explicit Version(int number) : number(number) {}
  bool differs_from(const IndexFingerprint& other) const override {
    return number != static_cast<const Version&>(other).number;
  }
  int number;
};

class Listing final : public retrieval::SymbolListing {
 public:
  explicit Listing(std::vector<retrieval::StoredSymbol> symbols) : symbols_(std::move(symbols)) {}
  std::optional<retrieval::StoredSymbol> next() override {
    if (next_ == symbols_.size()) return std::nullopt;
    return std::move(symbols_[next_++]);
  }

 private:
  std::vector<retrieval::StoredSymbol> symbols_;
  std::size_t next_ = 0;
};

// An index that never changes and stores no embeddings.
class Index final : public retrieval::Repository {
 public:
  std::shared_ptr<const retrieval::IndexFingerprint> retrieval_fingerprint() override {
    return std::make_shared<Version>(1);
  }
  std::unique_ptr<retrieval::SymbolListing> retrievable_code_symbols(
      const retrieval::StringSet& /*languages*/, const retrieval::StringSet& /*kinds*/) override {
    return std::make_unique<Listing>(symbols_);
  }
  std::vector<retrieval::SymbolId> nearest_symbol_ids(const retrieval::QueryVector& /*vector*/,
                                                      std::int64_t /*top_k*/) override {
    return {};
  }
  std::unordered_map<retrieval::SymbolId, std::optional<std::string>> get_symbols_by_ids(
      std::span<const retrieval::SymbolId> /*ids*/) override {
    return {};
  }

 private:
  // id, fqn, name, kind, path, first and last line, signature, docstring
  std::vector<retrieval::StoredSymbol> symbols_{
      {1, "app::parse_config", "parse_config", "function", "src/config.cpp", 12, 40,
       "Config parse_config(std::istream& in)", "Parses the configuration file."},
      {2, "app::Config", "Config", "class", "src/config.hpp", 8, 30, "class Config", std::nullopt},
      {3, "app::serve", "serve", "function", "src/server.cpp", 20, 90, "void serve(const Config&)",
       "Answers requests until the process is told to stop."},
  };
};

struct StandardError final : retrieval::Log {
  void write(const retrieval::LogRecord& record) override {
    std::fprintf(stderr, "%s\n", retrieval::log_text(record).c_str());
  }
};

}  // namespace

int main(int argc, char** argv) {
  const retrieval::Host host{
      .rules = {.source_languages = {"cpp"},
                .declaration_kinds = {"class", "function"},
                .callable_kinds = {"function"},
                .is_test_path = [](std::string_view path) { return path.starts_with("tests/"); }},
      .log = std::make_shared<StandardError>()};
  retrieval::HybridRetriever retriever(std::make_shared<Index>(), host);

  const auto result = retriever.retrieve(argc > 1 ? argv[1] : "config", {.limit = 3});
  for (int place = 1; const retrieval::Hit& hit : result.hits) {
    std::printf("%d  %s  %s:%lld", place++, hit.symbol.name.c_str(), hit.symbol.path.c_str(),
                static_cast<long long>(hit.symbol.start_line));
    for (const auto& [channel, rank] : hit.ranks) {
      std::printf("  %s %lld", channel.c_str(), static_cast<long long>(rank));
    }
    std::printf("\n");
  }
  if (result.note) std::printf("%s\n", result.note->c_str());
}
