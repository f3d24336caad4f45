#include "retrieval/corpus/bm25.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>

#include "retrieval/corpus/fts5.hpp"

namespace retrieval {
namespace {

constexpr double kK1 = 1.2;
constexpr double kB = 0.75;
constexpr double kLeastIdf = 1e-6;

// A stem that no row holds.
constexpr StringPool::Ref kUnknown = std::numeric_limits<StringPool::Ref>::max();

double idf(std::int64_t rows, std::int64_t rows_of_stem) {
  const double value = std::log((static_cast<double>(rows - rows_of_stem) + 0.5) /
                                (static_cast<double>(rows_of_stem) + 0.5));
  return value <= 0.0 ? kLeastIdf : value;
}

// The first repeat of the stem, or where it would stand.
auto first_of(const auto& repeats, StringPool::Ref stem) {
  constexpr std::size_t kFew = 16;
  if (repeats.size() > kFew) {
    return std::ranges::lower_bound(repeats, stem, {}, [](const auto& r) { return r.stem; });
  }
  auto repeat = repeats.begin();
  while (repeat != repeats.end() && repeat->stem < stem) ++repeat;
  return repeat;
}

// Calls `visit` with each word of a column.
template <typename Visit>
void for_each_word(std::string_view text, Visit visit) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    if (end > start) visit(text.substr(start, end - start));
    start = end + 1;
  }
}

}  // namespace

void Bm25::Table::add_row(Bm25& owner, std::int64_t id, std::span<const std::string_view> columns) {
  ids_.push_back(id);
  const auto row = static_cast<std::uint32_t>(ids_.size());
  const std::size_t first_repeat = repeats_.size();
  std::uint32_t length = 0;
  for (std::uint32_t column = 0; column < columns.size(); ++column) {
    ++columns_seen_;
    const std::size_t column_repeats = repeats_.size();
    for (const StringPool::Ref stem : stems_of(owner, column, columns[column])) {
      ++length;
      if (stem >= seen_.size()) {
        seen_.resize(stem + 1);
        rows_of_stem_.resize(stem + 1);
      }
      Seen& seen = seen_[stem];
      if (seen.row != row) ++rows_of_stem_[stem];
      seen.count = seen.column == columns_seen_ ? seen.count + 1 : 1;
      seen.row = row;
      seen.column = columns_seen_;
      if (seen.count == 2) repeats_.push_back({stem, column, 0});
    }
    for (std::size_t i = column_repeats; i < repeats_.size(); ++i) {
      repeats_[i].count = seen_[repeats_[i].stem].count;
    }
  }
  std::sort(repeats_.begin() + static_cast<std::ptrdiff_t>(first_repeat), repeats_.end(),
            [](const Repeat& a, const Repeat& b) {
              return a.stem != b.stem ? a.stem < b.stem : a.column < b.column;
            });
  words_ += length;
  rows_.push_back({length, static_cast<std::uint32_t>(repeats_.size())});
}

const std::vector<StringPool::Ref>& Bm25::Table::stems_of(Bm25& owner, std::size_t column,
                                                          std::string_view text) {
  Column& last = last_row_[column];
  if (last.text.data() != text.data() || last.text.size() != text.size()) {
    last.text = text;
    last.stems.clear();
    for_each_word(text, [&](std::string_view word) { last.stems.push_back(owner.stem_of(word)); });
  }
  return last.stems;
}

void Bm25::Table::close() {
  last_row_ = {};
  places_ = IdIndex(ids_);
  ids_ = {};
  seen_ = {};
  rows_.shrink_to_fit();
  repeats_.shrink_to_fit();
  rows_of_stem_.shrink_to_fit();
}

std::unique_ptr<Bm25> Bm25::install(const Database& database, const std::string& tokenizer) {
  std::unique_ptr<Tokenizer> word_by_word = Tokenizer::word_by_word(database, tokenizer);
  if (word_by_word == nullptr) return nullptr;
  std::unique_ptr<Bm25> bm25(new Bm25(std::move(word_by_word)));
  fts5_api* api = fts5_of(database);
  // Of two functions of one name, FTS5 takes the one that came later.
  if (api->xCreateFunction(api, "bm25", bm25.get(), &Bm25::rank, nullptr) != SQLITE_OK) {
    return nullptr;
  }
  return bm25;
}

void Bm25::close() {
  symbols.close();
  files.close();
  stems_of_words_ = {};
}

StringPool::Ref Bm25::stem_of(std::string_view word) {
  if (word.size() > WordTable::kShort) return stems_.add(tokenizer_->stem(word));
  StringPool::Ref& stem = stems_of_words_.stem_of(word);
  if (stem == WordTable::kNew) stem = stems_.add(tokenizer_->stem(word));
  return stem;
}

StringPool::Ref& WordTable::stem_of(std::string_view word) {
  std::array<std::uint64_t, 2> key{};
  std::memcpy(key.data(), word.data(), word.size());
  if (2 * words_ >= slots_.size()) {
    std::vector<Slot> full(std::max<std::size_t>(1024, 2 * slots_.size()));
    full.swap(slots_);
    for (const Slot& slot : full) {
      if (slot.word[0] != 0) slot_of(slot.word) = slot;
    }
  }
  Slot& slot = slot_of(key);
  if (slot.word[0] == 0) {
    slot.word = key;
    ++words_;
  }
  return slot.stem;
}

WordTable::Slot& WordTable::slot_of(const std::array<std::uint64_t, 2>& word) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15U;
  const std::uint64_t mixed = (word[0] * kOdd) ^ ((word[1] + kOdd) * 0xC2B2AE3D27D4EB4FU);
  const std::size_t mask = slots_.size() - 1;
  std::size_t place = (mixed ^ (mixed >> 32U)) & mask;
  while (slots_[place].word[0] != 0 && slots_[place].word != word) place = (place + 1) & mask;
  return slots_[place];
}

void Bm25::begin(const Table& table, std::span<const std::string> terms) {
  table_ = &table;
  phrases_.clear();
  const auto rows = static_cast<std::int64_t>(table.rows_.size());
  for (const std::string& term : terms) {
    const StringPool::Ref stem = stems_.find(tokenizer_->stem(term)).value_or(kUnknown);
    const std::int64_t holders = stem < table.rows_of_stem_.size() ? table.rows_of_stem_[stem] : 0;
    phrases_.push_back({stem, idf(rows, holders)});
  }
  mean_length_ = static_cast<double>(table.words_) / static_cast<double>(rows);
  weights_read_ = false;
}

void Bm25::rank(const Fts5ExtensionApi* api, Fts5Context* query, sqlite3_context* context,
                int count, sqlite3_value** weights) {
  auto& bm25 = *static_cast<Bm25*>(api->xUserData(query));
  if (!bm25.weights_read_) bm25.read_weights({weights, static_cast<std::size_t>(count)});
  ++bm25.rows_ranked_;
  sqlite3_result_double(context, -1.0 * bm25.score(*api, query));
}

void Bm25::read_weights(std::span<sqlite3_value*> weights) {
  weights_.fill(1.0);
  for (std::size_t i = 0; i < std::min(weights.size(), kColumns); ++i) {
    weights_[i] = sqlite3_value_double(weights[i]);
  }
  weights_whole_ = std::ranges::all_of(weights_, [](double weight) {
    return weight == std::trunc(weight) && std::abs(weight) < 1e6;
  });
  weights_read_ = true;
}

double Bm25::score(const Fts5ExtensionApi& api, Fts5Context* query) const {
  const std::uint32_t row = *table_->places_.find(api.xRowid(query));
  const std::span<const Table::Repeat> repeats = table_->repeats_of(row);
  const double length = table_->rows_[row].length;
  const double norm = kK1 * (1 - kB + kB * length / mean_length_);
  double score = 0.0;
  for (std::size_t i = 0; i < phrases_.size(); ++i) {
    Fts5PhraseIter columns;
    int column = -1;
    api.xPhraseFirstColumn(query, static_cast<int>(i), &columns, &column);
    // A word that the row does not hold adds nothing.
    if (column < 0) continue;
    auto repeat = first_of(repeats, phrases_[i].stem);
    double frequency = 0.0;
    for (; column >= 0; api.xPhraseNextColumn(query, &columns, &column)) {
      const double weight = weights_[static_cast<std::size_t>(column)];
      std::uint32_t count = 1;
      if (repeat != repeats.end() && repeat->stem == phrases_[i].stem &&
          repeat->column == static_cast<std::uint32_t>(column)) {
        count = repeat->count;
        ++repeat;
      }
      // Whole numbers add up exactly, so that the product is the sum; others must be added one by
      // one, as the built-in function does.
      if (count == 1) {
        frequency += weight;
      } else if (weights_whole_) {
        frequency += weight * count;
      } else {
        while (count-- > 0) frequency += weight;
      }
    }
    score += phrases_[i].idf * ((frequency * (kK1 + 1.0)) / (frequency + norm));
  }
  return score;
}

}  // namespace retrieval
