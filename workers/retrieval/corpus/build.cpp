#include <algorithm>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "retrieval/corpus/corpus.hpp"
#include "retrieval/corpus/text_tables.hpp"
#include "retrieval/query/unicode.hpp"
#include "retrieval/query/words.hpp"

namespace retrieval {
namespace {

// How many symbols are read from the host at a time: enough that entering the host costs nothing,
// few enough that it is never kept for long.
constexpr std::size_t kBatch = 256;

constexpr std::string_view kModule = "module";

// The place of a kind: among the symbols of one name, declarations that are neither callables,
// modules nor constants come first, then callables and modules, then constants.
int _kind_order(std::string_view kind, const CodeRules& rules) {
  if (kind == "constant") return 2;
  return kind == kModule || rules.callable_kinds.contains(kind) ? 1 : 0;
}

std::string_view text_of(const std::optional<std::string>& text) {
  return text ? std::string_view(*text) : std::string_view();
}

// What the file table holds of one file, gathered symbol by symbol.
struct _FileText {
  _FileText(std::int64_t file_row, std::string_view words) : row(file_row), path_words(words) {}

  std::int64_t row;
  std::string_view path_words;
  std::string names;  // the name words of each symbol, empty entries included, one space between
  std::string docstrings;  // the docstring words that are not empty, one space between
  bool has_symbols = false;

  void add(std::string_view name_words, std::string_view docstring_words) {
    if (has_symbols) names += ' ';
    has_symbols = true;
    names += name_words;
    if (docstring_words.empty()) return;
    if (!docstrings.empty()) docstrings += ' ';
    docstrings += docstring_words;
  }

  _FileRow table_row() const { return {row, names, path_words, docstrings}; }
};

// One build, from the listing to the finished snapshot.
class Build {
 public:
  Build(const CodeRules& rules, const StringSet& kinds) : rules_(rules), kinds_(kinds) {}

  void read(SymbolListing& listing);
  void sort_names();
  void fill_text_tables(const RetrievalSettings& settings, Log& log);
  std::shared_ptr<_Corpus> finish(std::shared_ptr<const IndexFingerprint> fingerprint);

  const _Corpus& corpus() const { return *corpus_; }
  std::int64_t tests() const { return tests_; }

 private:
  struct Listed {
    StoredSymbol symbol;
    std::int64_t file;
  };

  std::int64_t file_of(std::string_view path);
  void add(const StoredSymbol& symbol, std::int64_t file);
  std::string_view words_of(std::string_view text);

  const CodeRules& rules_;
  const StringSet& kinds_;
  std::shared_ptr<_Corpus> corpus_ = std::make_shared<_Corpus>();
  std::int64_t tests_ = 0;

  // Needed only while building.
  std::unordered_map<StringPool::Ref, std::int64_t> rows_by_path_;
  std::vector<_FileText> file_texts_;
  std::vector<StringPool::Ref> lower_names_;  // by place
  TextArena words_;
  std::string scratch_;
  std::vector<_SymbolRow> symbol_rows_;
};

void Build::read(SymbolListing& listing) {
  std::vector<Listed> batch;
  batch.reserve(kBatch);
  for (bool more = true; more;) {
    {
      const HostValue held = listing.hold();
      while (more && batch.size() < kBatch) {
        std::optional<StoredSymbol> symbol = listing.next();
        more = symbol.has_value();
        if (!more) break;
        const std::int64_t file = file_of(symbol->path);
        batch.push_back({*std::move(symbol), file});
      }
    }
    for (const Listed& listed : batch) add(listed.symbol, listed.file);
    batch.clear();
  }
  corpus_->symbols.close();
}

std::int64_t Build::file_of(std::string_view path) {
  const StringPool::Ref ref = corpus_->texts.add(path);
  const auto [entry, is_new] = rows_by_path_.try_emplace(ref, 0);
  if (is_new) {
    entry->second = corpus_->files.add(ref, rules_.is_test_path(path));
    file_texts_.emplace_back(entry->second, words_of(path));
  }
  return entry->second;
}

void Build::add(const StoredSymbol& symbol, std::int64_t file) {
  StringPool& texts = corpus_->texts;
  corpus_->symbols.add({.id = symbol.id,
                        .start_line = symbol.start_line,
                        .end_line = symbol.end_line,
                        .fqn = texts.add(symbol.fqn),
                        .name = texts.add(symbol.name),
                        .kind = texts.add(symbol.kind),
                        .signature = texts.add(text_of(symbol.signature)),
                        .file = static_cast<std::uint32_t>(file),
                        .has_signature = symbol.signature.has_value()});
  corpus_->files.add_symbol(file, symbol.id);
  if (corpus_->files[file].in_tests) ++tests_;
  lower_names_.push_back(texts.add(unicode::lower_case(symbol.name)));

  _FileText& file_text = file_texts_[static_cast<std::size_t>(file - 1)];
  const std::string_view name_words = words_of(symbol.name);
  const std::string_view docstring_words = words_of(text_of(symbol.docstring));
  file_text.add(name_words, docstring_words);
  symbol_rows_.push_back({symbol.id, name_words, words_of(text_of(symbol.signature)),
                          file_text.path_words, docstring_words});
}

std::string_view Build::words_of(std::string_view text) {
  scratch_.clear();
  _append_index_text(text, scratch_);
  return words_.keep(scratch_);
}

void Build::sort_names() {
  const SymbolTable& symbols = corpus_->symbols;
  for (std::size_t place = 0; place < symbols.size(); ++place) {
    const std::string_view kind = corpus_->texts[symbols[place].kind];
    if (!kinds_.contains(kind)) {
      throw UnknownKindError("the index listed symbol " + std::to_string(symbols[place].id) +
                             " of the kind '" + std::string(kind) + "', which is not retrievable");
    }
  }
  const auto listing_order = [&](std::uint32_t place) {
    const SymbolTable::Row& symbol = symbols[place];
    return std::tuple(_kind_order(corpus_->texts[symbol.kind], rules_), corpus_->path_of(symbol),
                      symbol.id);
  };
  // The distinct names in their order, then the places of each name side by side: a counting sort.
  std::vector<StringPool::Ref> names = lower_names_;
  std::ranges::sort(names);
  names.erase(std::ranges::unique(names).begin(), names.end());
  std::ranges::sort(names, {}, [&](StringPool::Ref name) { return corpus_->texts[name]; });
  std::vector<std::uint32_t> ends(corpus_->texts.size());
  for (const StringPool::Ref name : lower_names_) ++ends[name];
  for (std::uint32_t end = 0; const StringPool::Ref name : names) end = ends[name] += end;
  std::vector<std::uint32_t> places(symbols.size());
  for (auto place = static_cast<std::uint32_t>(symbols.size()); place-- > 0;) {
    places[--ends[lower_names_[place]]] = place;
  }
  std::vector<SymbolId> ids;
  for (std::size_t name = 0; name < names.size(); ++name) {
    // Each end has become its name's start.
    const std::size_t start = ends[names[name]];
    const std::size_t end = name + 1 < names.size() ? ends[names[name + 1]] : places.size();
    const std::span of_name = std::span(places).subspan(start, end - start);
    std::ranges::sort(of_name, {}, listing_order);
    ids.clear();
    for (const std::uint32_t place : of_name) ids.push_back(symbols[place].id);
    corpus_->by_name.add(corpus_->texts[names[name]], ids);
  }
}

void Build::fill_text_tables(const RetrievalSettings& settings, Log& log) {
  std::vector<_FileRow> file_rows;
  file_rows.reserve(file_texts_.size());
  for (const _FileText& file : file_texts_) file_rows.push_back(file.table_row());
  corpus_->fts = _text_tables(settings, symbol_rows_, file_rows, log);
}

std::shared_ptr<_Corpus> Build::finish(std::shared_ptr<const IndexFingerprint> fingerprint) {
  corpus_->texts.close();
  corpus_->fingerprint = std::move(fingerprint);
  return std::move(corpus_);
}

}  // namespace

RetrievedSymbol _Corpus::symbol(SymbolId id) const {
  const SymbolTable::Row& row = *symbols.find(id);
  RetrievedSymbol symbol{.id = id,
                         .fqn = std::string(texts[row.fqn]),
                         .name = std::string(texts[row.name]),
                         .kind = std::string(texts[row.kind]),
                         .path = std::string(path_of(row)),
                         .start_line = row.start_line,
                         .end_line = row.end_line,
                         .signature = std::nullopt};
  if (row.has_signature) symbol.signature = texts[row.signature];
  return symbol;
}

std::shared_ptr<const _Corpus> _build_corpus(Repository& repository,
                                             std::shared_ptr<const IndexFingerprint> fingerprint,
                                             const RetrievalSettings& settings,
                                             const CodeRules& rules, Log& log) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const StringSet kinds = retrievable_kinds(rules.declaration_kinds);
  Build build(rules, kinds);
  build.read(*repository.retrievable_code_symbols(rules.source_languages, kinds));
  build.sort_names();
  build.fill_text_tables(settings, log);
  const std::chrono::duration<double, std::milli> elapsed = Clock::now() - start;
  log.write(
      {LogLevel::kDebug,
       "Retrieval corpus built: %d symbols in %d files (%d symbols in test files) in %.0f ms",
       {static_cast<std::int64_t>(build.corpus().symbols.size()),
        static_cast<std::int64_t>(build.corpus().files.size()), build.tests(), elapsed.count()},
       nullptr});
  return build.finish(std::move(fingerprint));
}

}  // namespace retrieval
