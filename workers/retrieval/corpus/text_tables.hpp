// The in-memory text tables: two FTS5 tables, one row per symbol and one per file, searched for the
// rows that hold any of some words, best weighted BM25 first.
//
// They are written once, by `_text_tables`, and only read afterwards. The database may be used from
// any thread, one at a time: `_matching` takes the lock that its snapshot keeps beside it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "retrieval/corpus/bm25.hpp"
#include "retrieval/corpus/sqlite.hpp"
#include "retrieval/host/log.hpp"
#include "retrieval/retriever/settings.hpp"

namespace retrieval {

inline constexpr std::string_view _SYMBOL_TABLE = "lexical";
inline constexpr std::string_view _FILE_TABLE = "files";

// One row of the symbol table: words separated by spaces.
struct _SymbolRow {
  std::int64_t id;
  std::string_view name;
  std::string_view signature;
  std::string_view path;
  std::string_view docstring;
};

// One row of the file table.
struct _FileRow {
  std::int64_t row;
  std::string_view names;
  std::string_view path;
  std::string_view docstrings;
};

// What ranks the rows that match. Both give every row the same rank; FTS5's own reads each row
// again to count its words.
enum class RankFunction { kOwn, kBuiltIn };

// The filled tables; used under the lock that their snapshot keeps beside them.
struct TextTables {
  Database database;
  // Null where FTS5's built-in function ranks: when that was asked for, or when the tokenizer does
  // not take words one by one. Goes before the database whose queries call it.
  std::unique_ptr<Bm25> bm25;
};

// The filled tables, or null, after a warning in the log, when this SQLite lacks FTS5 or the
// tokenizer. Any other failure throws SqliteError, and nothing is left behind.
std::unique_ptr<TextTables> _text_tables(const RetrievalSettings& settings,
                                         std::span<const _SymbolRow> symbol_rows,
                                         std::span<const _FileRow> file_rows, Log& log,
                                         RankFunction rank_function = RankFunction::kOwn);

// A search in progress: holds the lock from its construction to its end, and closes its query
// before it lets the lock go. Used by the thread that made it.
class _Matching {
 public:
  _Matching(TextTables& fts, std::mutex& lock, std::string_view table,
            std::span<const std::string> terms);
  // The query refers to the expression beside it.
  _Matching(const _Matching&) = delete;
  _Matching& operator=(const _Matching&) = delete;

  // The next matching row's id, best first; nothing after the last. Throws SqliteError.
  std::optional<std::int64_t> next();

 private:
  std::unique_lock<std::mutex> lock_;
  std::string expression_;
  Statement query_;
};

// Searches the table for the rows that hold any of the terms, at least one, each a word of ASCII
// letters or of digits.
_Matching _matching(TextTables& fts, std::mutex& lock, std::string_view table,
                    std::span<const std::string> terms);

}  // namespace retrieval
