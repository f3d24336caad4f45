// What the text tables cost, against their floors, on real symbols and one thread:
//
//   text_tables_benchmark SYMBOLS [LIMIT]
//
// SYMBOLS is a SQLite file with a table `symbol` (id, fqn, name, kind, path, start_line, end_line,
// signature, docstring) in listing order. Two tables are printed. The first holds the snapshot
// build against the bare insertion of the same rows into the same tables in one transaction. The
// second holds the statement that the channels run, ranked by the library's function, against
// FTS5's own function and against a function that returns one constant (no whole number, since
// SQLite sorts those faster than it could sort any score). The order of all rows is compared on the
// way.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/corpus/fts5.hpp"
#include "retrieval/corpus/text_tables.hpp"
#include "retrieval/query/words.hpp"

namespace {

using namespace retrieval;

constexpr int kBuilds = 5;
constexpr int kQuestions = 200;
constexpr int kRepetitions = 3;

// Runs a function and returns how long it took, in milliseconds.
template <typename Run>
double milliseconds(Run run) {
  const auto start = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

class Index final : public Repository {
 public:
  explicit Index(std::vector<StoredSymbol> symbols) : symbols_(std::move(symbols)) {}

  std::shared_ptr<const IndexFingerprint> retrieval_fingerprint() override { return nullptr; }
  std::unique_ptr<SymbolListing> retrievable_code_symbols(const StringSet& /*languages*/,
                                                          const StringSet& /*kinds*/) override {
    struct Walk final : SymbolListing {
      explicit Walk(std::vector<StoredSymbol>& listed) : symbols(listed) {}
      std::optional<StoredSymbol> next() override {
        if (at == symbols.size()) return std::nullopt;
        return std::move(symbols[at++]);
      }
      std::vector<StoredSymbol>& symbols;
      std::size_t at = 0;
    };
    return std::make_unique<Walk>(symbols_);
  }
  std::vector<SymbolId> nearest_symbol_ids(const QueryVector& /*vector*/,
                                           std::int64_t /*top_k*/) override {
    return {};
  }
  std::unordered_map<SymbolId, std::optional<std::string>> get_symbols_by_ids(
      std::span<const SymbolId> /*ids*/) override {
    return {};
  }

 private:
  std::vector<StoredSymbol> symbols_;
};

struct Silent final : Log {
  void write(const LogRecord& /*record*/) override {}
};

std::vector<StoredSymbol> read_symbols(const char* path, long limit) {
  sqlite3* database = nullptr;
  sqlite3_stmt* rows = nullptr;
  if (sqlite3_open_v2(path, &database, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(database,
                         "SELECT id, fqn, name, kind, path, start_line, end_line, signature, "
                         "docstring FROM symbol ORDER BY rowid LIMIT ?",
                         -1, &rows, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", path, sqlite3_errmsg(database));
    std::exit(3);
  }
  sqlite3_bind_int64(rows, 1, limit);
  const auto text = [&](int column) {
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(rows, column)),
                       static_cast<std::size_t>(sqlite3_column_bytes(rows, column)));
  };
  const auto optional = [&](int column) -> std::optional<std::string> {
    if (sqlite3_column_type(rows, column) == SQLITE_NULL) return std::nullopt;
    return text(column);
  };
  std::vector<StoredSymbol> symbols;
  while (sqlite3_step(rows) == SQLITE_ROW) {
    symbols.push_back({sqlite3_column_int64(rows, 0), text(1), text(2), text(3), text(4),
                       sqlite3_column_int64(rows, 5), sqlite3_column_int64(rows, 6), optional(7),
                       optional(8)});
  }
  sqlite3_finalize(rows);
  sqlite3_close(database);
  return symbols;
}

// The rows of both tables, split beforehand.
struct Rows {
  struct Texts {
    std::string name, signature, path, docstring;
  };
  struct FileTexts {
    std::string names, path, docstrings;
  };
  std::vector<Texts> texts;
  std::vector<FileTexts> file_texts;
  std::vector<_SymbolRow> symbols;
  std::vector<_FileRow> files;

  explicit Rows(const std::vector<StoredSymbol>& stored) {
    std::map<std::string, std::size_t> places;
    for (const StoredSymbol& symbol : stored) {
      texts.push_back({_index_text(symbol.name), _index_text(symbol.signature),
                       _index_text(symbol.path), _index_text(symbol.docstring)});
      const auto [place, is_new] = places.try_emplace(symbol.path, file_texts.size());
      if (is_new) file_texts.push_back({"", texts.back().path, ""});
      FileTexts& file = file_texts[place->second];
      (file.names += texts.back().name) += ' ';
      (file.docstrings += texts.back().docstring) += ' ';
    }
    for (std::size_t i = 0; i < stored.size(); ++i) {
      const Texts& row = texts[i];
      symbols.push_back({stored[i].id, row.name, row.signature, row.path, row.docstring});
    }
    for (const FileTexts& file : file_texts) {
      files.push_back(
          {static_cast<std::int64_t>(files.size() + 1), file.names, file.path, file.docstrings});
    }
  }
};

// Questions as people ask them: names, words of docstrings, and both.
std::vector<std::vector<std::string>> make_questions(const std::vector<StoredSymbol>& symbols) {
  std::mt19937 random(1);
  std::vector<const StoredSymbol*> documented;
  for (const StoredSymbol& symbol : symbols) {
    if (symbol.docstring && symbol.docstring->size() > 40) documented.push_back(&symbol);
  }
  std::vector<std::vector<std::string>> questions;
  while (questions.size() < kQuestions) {
    const StoredSymbol& named = symbols[random() % symbols.size()];
    const StoredSymbol& told = *documented[random() % documented.size()];
    const std::size_t kind = questions.size() % 3;
    std::vector<std::string> terms =
        query_terms(kind == 0 ? named.fqn : told.docstring->substr(0, told.docstring->find('.')));
    if (terms.size() > 7) terms.resize(7);
    if (kind == 2) {
      for (std::string& term : query_terms(named.name)) terms.push_back(std::move(term));
    }
    if (!terms.empty()) questions.push_back(std::move(terms));
  }
  return questions;
}

void rank_by_constant(const Database& database) {
  fts5_api* api = fts5_of(database);
  api->xCreateFunction(
      api, "bm25", nullptr,
      [](const Fts5ExtensionApi*, Fts5Context*, sqlite3_context* context, int, sqlite3_value**) {
        sqlite3_result_double(context, -0.7);
      },
      nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: text_tables_benchmark SYMBOLS [LIMIT]\n");
    return 2;
  }
  const std::vector<StoredSymbol> symbols =
      read_symbols(argv[1], argc > 2 ? std::atol(argv[2]) : -1);
  const Rows rows(symbols);
  CodeRules rules{.source_languages = {},
                  .declaration_kinds = {},
                  .callable_kinds = {},
                  .is_test_path = [](std::string_view) { return false; }};
  for (const StoredSymbol& symbol : symbols) rules.declaration_kinds.insert(symbol.kind);

  Silent log;
  std::unique_ptr<TextTables> built_in;
  std::shared_ptr<const _Corpus> corpus;
  std::vector<double> insertions;
  std::vector<double> builds;
  for (int build = 0; build < kBuilds; ++build) {
    built_in.reset();
    corpus.reset();
    insertions.push_back(milliseconds([&] {
      built_in = _text_tables({}, rows.symbols, rows.files, log, RankFunction::kBuiltIn);
    }));
    Index index(symbols);
    builds.push_back(milliseconds([&] { corpus = _build_corpus(index, nullptr, {}, rules, log); }));
  }
  std::printf("%zu symbols in %zu files\n\n", rows.symbols.size(), rows.files.size());
  std::printf("| Build, median of %d | ms |\n|---|---|\n", kBuilds);
  std::printf("| bare insertion | %.0f |\n| snapshot build | %.0f |\n| ratio | %.2f |\n\n",
              median(insertions), median(builds), median(builds) / median(insertions));

  const auto constant = _text_tables({}, rows.symbols, rows.files, log, RankFunction::kBuiltIn);
  rank_by_constant(constant->database);
  const std::array<TextTables*, 3> ranked{corpus->fts.get(), built_in.get(), constant.get()};

  std::mutex lock;
  std::array<double, 3> all{};
  int differences = 0;
  std::printf(
      "| Text statements, %d questions | rows | own ms | built-in ms | floor ms | "
      "built-in / own | own / floor |\n|---|---|---|---|---|---|---|\n",
      kQuestions);
  const auto print = [](const char* name, std::size_t count, const std::array<double, 3>& took) {
    std::printf("| %s | %zu | %.0f | %.0f | %.0f | %.1f | %.2f |\n", name, count, took[0], took[1],
                took[2], took[1] / took[0], took[0] / took[2]);
  };
  std::size_t all_rows = 0;
  for (const std::string_view table : {_SYMBOL_TABLE, _FILE_TABLE}) {
    std::array<double, 3> took{};
    std::size_t count = 0;
    for (const std::vector<std::string>& terms : make_questions(symbols)) {
      std::array<std::vector<std::int64_t>, 3> found;
      for (std::size_t which = 0; which < ranked.size(); ++which) {
        std::vector<double> times;
        for (int repetition = 0; repetition < kRepetitions; ++repetition) {
          found[which].clear();
          times.push_back(milliseconds([&] {
            _Matching matching = _matching(*ranked[which], lock, table, terms);
            while (const auto row = matching.next()) found[which].push_back(*row);
          }));
        }
        took[which] += median(times);
      }
      count += found[0].size();
      if (found[0] != found[1]) ++differences;
    }
    print(table == _SYMBOL_TABLE ? "symbol table" : "file table", count, took);
    for (std::size_t which = 0; which < all.size(); ++which) all[which] += took[which];
    all_rows += count;
  }
  print("both", all_rows, all);
  std::printf("\nquestions whose rows came in another order: %d\n", differences);
  return differences == 0 ? 0 : 1;
}
