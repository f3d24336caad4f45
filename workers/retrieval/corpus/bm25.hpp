// Okapi BM25 over the text tables: FTS5's own ranking, computed without reading a row again.
//
// The tables record in which columns of a row a word stands, not how often. FTS5's built-in `bm25`
// therefore splits every matching row anew to count. This one is registered in its place, under the
// same name, and keeps from the build what a score needs: each row's length, the number of rows of
// each stem, and the counts of the few stems that a column holds more than once. It adds the same
// numbers in the same order as the built-in function, so that scores are equal to the last bit:
//
//   score = -sum over words of idf * f * (k1 + 1) / (f + k1 * (1 - b + b * length / mean length))
//   idf   = ln((rows - rows of the word + 0.5) / (rows of the word + 0.5)), at least 1e-6
//
// where f adds a column's weight for every time the word stands in it, k1 = 1.2 and b = 0.75
// (S. E. Robertson et al., "Okapi at TREC-3", 1994; the constants are those of FTS5).
//
// Filled by one thread; then used under the lock of its database, which outlives it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "retrieval/corpus/id_index.hpp"
#include "retrieval/corpus/sqlite.hpp"
#include "retrieval/corpus/string_pool.hpp"
#include "retrieval/corpus/tokenizer.hpp"

struct Fts5ExtensionApi;
struct Fts5Context;

namespace retrieval {

// The stems of the words met so far. A short word, as nearly all are, is found by one look at its
// slot, which holds it whole.
class WordTable {
 public:
  static constexpr std::size_t kShort = 16;

  // The place of the stem of a word of at most kShort bytes; it is kNew where the word is new, to
  // be set by the caller before the next call.
  StringPool::Ref& stem_of(std::string_view word);
  static constexpr StringPool::Ref kNew = 0xFFFFFFFF;

 private:
  struct Slot {
    std::array<std::uint64_t, 2> word{};  // filled up with zeros; all zeros for a free slot
    StringPool::Ref stem = kNew;
  };
  Slot& slot_of(const std::array<std::uint64_t, 2>& word);

  std::vector<Slot> slots_;  // open addressing; a power of two in size
  std::size_t words_ = 0;
};

class Bm25 {
 public:
  // The most columns that a table may have.
  static constexpr std::size_t kColumns = 4;

  // What the ranks of one table's rows are made of.
  class Table {
   public:
    // Adds a row: its columns in order, each of words separated by spaces.
    void add_row(Bm25& owner, std::int64_t id, std::span<const std::string_view> columns);
    // Ends the filling.
    void close();

   private:
    friend class Bm25;

    // How often a column of a row holds a stem, where that is more than once.
    struct Repeat {
      StringPool::Ref stem;
      std::uint32_t column : 3;
      std::uint32_t count : 29;
    };
    // Where a stem was seen last while filling.
    struct Seen {
      std::uint32_t row = 0;     // 1-based
      std::uint32_t column = 0;  // counted over all rows
      std::uint32_t count = 0;
    };

    const std::vector<StringPool::Ref>& stems_of(Bm25& owner, std::size_t column,
                                                 std::string_view text);
    std::span<const Repeat> repeats_of(std::size_t row) const {
      const std::size_t start = row == 0 ? 0 : rows_[row - 1].repeats_end;
      return std::span(repeats_).subspan(start, rows_[row].repeats_end - start);
    }

    // What is kept of a row, beside its repeats.
    struct Row {
      std::uint32_t length;       // in words
      std::uint32_t repeats_end;  // where its repeats end; they start where the last row's end
    };

    IdIndex places_;
    std::vector<Row> rows_;
    std::vector<Repeat> repeats_;              // by row, then stem, then column
    std::vector<std::uint32_t> rows_of_stem_;  // by stem
    std::int64_t words_ = 0;

    // The words of a column; those of the last row again, when the column is the very same text, as
    // the path of the symbols of one file is.
    struct Column {
      std::string_view text;
      std::vector<StringPool::Ref> stems;
    };

    // Needed only while filling.
    std::array<Column, kColumns> last_row_;
    std::vector<std::int64_t> ids_;
    std::vector<Seen> seen_;
    std::uint32_t columns_seen_ = 0;
  };

  // Takes the place of `bm25` on this database, whose tables use the tokenizer (FTS5's option
  // text). Null, with nothing changed, when the tokenizer does not take words one by one.
  static std::unique_ptr<Bm25> install(const Database& database, const std::string& tokenizer);

  Bm25(const Bm25&) = delete;
  Bm25& operator=(const Bm25&) = delete;

  Table symbols;
  Table files;

  // Ends the filling of both tables.
  void close();

  // Says which table the next query searches, and for which words, one phrase each.
  void begin(const Table& table, std::span<const std::string> terms);

  // How many rows this has ranked.
  std::int64_t rows_ranked() const { return rows_ranked_; }

 private:
  // A word of the query.
  struct Phrase {
    StringPool::Ref stem;
    double idf;
  };

  explicit Bm25(std::unique_ptr<Tokenizer> tokenizer) : tokenizer_(std::move(tokenizer)) {}

  // The stem of a word of the tables, while they are filled.
  StringPool::Ref stem_of(std::string_view word);

  // FTS5's call for the row that a query stands at.
  static void rank(const Fts5ExtensionApi* api, Fts5Context* query, sqlite3_context* context,
                   int count, sqlite3_value** weights);
  void read_weights(std::span<sqlite3_value*> weights);
  double score(const Fts5ExtensionApi& api, Fts5Context* query) const;

  std::unique_ptr<Tokenizer> tokenizer_;
  StringPool stems_;
  WordTable stems_of_words_;  // while filling

  // The query in progress.
  const Table* table_ = nullptr;
  std::vector<Phrase> phrases_;
  double mean_length_ = 0.0;
  std::array<double, kColumns> weights_{};
  bool weights_read_ = false;
  bool weights_whole_ = false;  // whether all are whole numbers of moderate size

  std::int64_t rows_ranked_ = 0;
};

}  // namespace retrieval
