#include "retrieval/corpus/text_tables.hpp"

#include <array>
#include <exception>

namespace retrieval {
namespace {

void create(Database& database, std::string_view table, std::string_view columns,
            const RetrievalSettings& settings) {
  // Detail level column: no positions are kept, and none are needed, since every term is one word.
  std::string sql = "CREATE VIRTUAL TABLE ";
  sql.append(table).append(" USING fts5(").append(columns);
  sql.append(", tokenize = '").append(settings.tokenizer).append("', detail = column)");
  Statement(database, sql).run();
}

// Sets the table's persistent `rank` option: the lower the rank, the better the row.
void rank_by(const Database& database, std::string_view table, const std::string& expression) {
  const std::string name(table);
  Statement statement(database, "INSERT INTO " + name + " (" + name + ", rank) VALUES ('rank', ?)");
  statement.bind(1, expression);
  statement.run();
}

// Inserts a row, its columns in order, and tells the ranking of it.
void add_row(TextTables& tables, Statement& insert, Bm25::Table Bm25::* ranked, std::int64_t id,
             std::span<const std::string_view> columns) {
  insert.bind(1, id);
  for (int parameter = 2; const std::string_view column : columns) insert.bind(parameter++, column);
  insert.run();
  if (tables.bm25 != nullptr) ((*tables.bm25).*ranked).add_row(*tables.bm25, id, columns);
}

void fill_symbols(TextTables& tables, std::span<const _SymbolRow> rows) {
  Statement insert(tables.database,
                   "INSERT INTO " + std::string(_SYMBOL_TABLE) +
                       " (rowid, name, signature, path, docstring) VALUES (?, ?, ?, ?, ?)");
  for (const _SymbolRow& row : rows) {
    add_row(tables, insert, &Bm25::symbols, row.id,
            std::array{row.name, row.signature, row.path, row.docstring});
  }
}

void fill_files(TextTables& tables, std::span<const _FileRow> rows) {
  Statement insert(tables.database, "INSERT INTO " + std::string(_FILE_TABLE) +
                                        " (rowid, names, path, docstrings) VALUES (?, ?, ?, ?)");
  for (const _FileRow& row : rows) {
    add_row(tables, insert, &Bm25::files, row.row, std::array{row.names, row.path, row.docstrings});
  }
}

// Quoted, a term is a plain string to FTS5, never an operator.
std::string any_of(std::span<const std::string> terms) {
  std::string expression;
  for (std::string_view separator; const std::string& term : terms) {
    expression.append(separator).append("\"").append(term).append("\"");
    separator = " OR ";
  }
  return expression;
}

std::string search(std::string_view table) {
  const std::string name(table);
  return "SELECT rowid FROM " + name + " WHERE " + name + " MATCH ? ORDER BY rank";
}

// Readies the ranking for the query that comes, and gives back the tables.
TextTables& begun(TextTables& fts, std::string_view table, std::span<const std::string> terms) {
  if (fts.bm25 != nullptr) {
    fts.bm25->begin(table == _SYMBOL_TABLE ? fts.bm25->symbols : fts.bm25->files, terms);
  }
  return fts;
}

}  // namespace

std::unique_ptr<TextTables> _text_tables(const RetrievalSettings& settings,
                                         std::span<const _SymbolRow> symbol_rows,
                                         std::span<const _FileRow> file_rows, Log& log,
                                         RankFunction rank_function) {
  auto tables = std::make_unique<TextTables>(TextTables{Database::in_memory(), nullptr});
  Database& database = tables->database;
  try {
    create(database, _SYMBOL_TABLE, "name, signature, path, docstring", settings);
    create(database, _FILE_TABLE, "names, path, docstrings", settings);
  } catch (const SqliteError& error) {
    if (error.code() != SQLITE_ERROR) throw;
    tables.reset();
    log.write({LogLevel::kWarning,
               "This SQLite has no FTS5: retrieval ranks without text",
               {},
               std::current_exception()});
    return nullptr;
  }
  if (rank_function == RankFunction::kOwn) {
    tables->bm25 = Bm25::install(database, settings.tokenizer);
  }
  Transaction transaction(database);
  rank_by(database, _SYMBOL_TABLE, settings.weights.rank_function());
  rank_by(database, _FILE_TABLE, settings.file_weights.rank_function());
  fill_symbols(*tables, symbol_rows);
  fill_files(*tables, file_rows);
  transaction.commit();
  if (tables->bm25 != nullptr) tables->bm25->close();
  return tables;
}

_Matching::_Matching(TextTables& fts, std::mutex& lock, std::string_view table,
                     std::span<const std::string> terms)
    : lock_(lock),
      expression_(any_of(terms)),
      query_(begun(fts, table, terms).database, search(table)) {
  query_.bind(1, expression_);
}

std::optional<std::int64_t> _Matching::next() {
  if (!query_.step()) return std::nullopt;
  return query_.integer(0);
}

_Matching _matching(TextTables& fts, std::mutex& lock, std::string_view table,
                    std::span<const std::string> terms) {
  return _Matching(fts, lock, table, terms);
}

}  // namespace retrieval
