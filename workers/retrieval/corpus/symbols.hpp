// The symbols of a snapshot, looked up by id or by name, and its files.
//
// Compact tables with their texts in one pool: filled by the snapshot build, then only read, by any
// number of threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "retrieval/corpus/id_index.hpp"
#include "retrieval/corpus/string_pool.hpp"
#include "retrieval/host/repository.hpp"
#include "retrieval/retriever/records.hpp"

namespace retrieval {

// The file rows of a snapshot: 1, 2, 3, ... in the order in which their paths were first listed.
class FileTable {
 public:
  struct File {
    StringPool::Ref path;
    bool in_tests;              // whether the host calls it a test file
    std::vector<SymbolId> ids;  // its symbols, in the order listed
  };

  std::size_t size() const { return files_.size(); }
  const File& operator[](std::int64_t row) const {
    return files_[static_cast<std::size_t>(row - 1)];
  }

  // Adds a file and returns its row.
  std::int64_t add(StringPool::Ref path, bool in_tests);
  void add_symbol(std::int64_t row, SymbolId id) {
    files_[static_cast<std::size_t>(row - 1)].ids.push_back(id);
  }

 private:
  std::vector<File> files_;
};

// Every retrievable symbol, in the order listed, with an index by id.
class SymbolTable {
 public:
  struct Row {
    SymbolId id;
    std::int64_t start_line;
    std::int64_t end_line;
    StringPool::Ref fqn;
    StringPool::Ref name;
    StringPool::Ref kind;
    StringPool::Ref signature;
    std::uint32_t file;  // its file's row
    bool has_signature;
  };

  std::size_t size() const { return rows_.size(); }
  const Row& operator[](std::size_t place) const { return rows_[place]; }

  // The symbol's row, or null when there is none of this id.
  const Row* find(SymbolId id) const {
    const std::optional<std::uint32_t> place = places_.find(id);
    return place ? &rows_[*place] : nullptr;
  }

  void add(const Row& row) { rows_.push_back(row); }
  // Ends the filling: makes the index by id.
  void close();

 private:
  std::vector<Row> rows_;
  IdIndex places_;
};

// The lower-cased names of a snapshot in ascending code-point order, each with the ids of its
// symbols in listing order.
class NameTable {
 public:
  std::size_t size() const { return names_.size(); }

  // The ids of the symbols of this lower-cased name; none when there are no such symbols.
  std::span<const SymbolId> ids_of(std::string_view name) const;

  // The names that start with the prefix, other than the prefix itself, ascending.
  std::span<const std::string_view> starting_with(std::string_view prefix) const;

  // Adds a name greater than all before it.
  void add(std::string_view name, std::span<const SymbolId> ids);

 private:
  std::vector<std::string_view> names_;
  std::vector<std::uint32_t> ends_;  // where each name's ids end in `ids_`
  std::vector<SymbolId> ids_;
};

}  // namespace retrieval
