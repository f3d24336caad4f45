#include "retrieval/corpus/symbols.hpp"

#include <algorithm>
#include <bit>

namespace retrieval {

std::int64_t FileTable::add(StringPool::Ref path, bool in_tests) {
  files_.push_back({path, in_tests, {}});
  return static_cast<std::int64_t>(files_.size());
}

const SymbolTable::Row* SymbolTable::find(SymbolId id) const {
  if (slots_.empty()) return nullptr;
  for (std::size_t slot = slot_of(id); slots_[slot] != 0; slot = (slot + 1) % slots_.size()) {
    const Row& row = rows_[slots_[slot] - 1];
    if (row.id == id) return &row;
  }
  return nullptr;
}

void SymbolTable::close() {
  rows_.shrink_to_fit();
  slots_.assign(std::bit_ceil(rows_.size() + rows_.size() / 2 + 1), 0);
  for (std::size_t place = 0; place < rows_.size(); ++place) {
    std::size_t slot = slot_of(rows_[place].id);
    while (slots_[slot] != 0) slot = (slot + 1) % slots_.size();
    slots_[slot] = static_cast<std::uint32_t>(place + 1);
  }
}

std::size_t SymbolTable::slot_of(SymbolId id) const {
  // Fibonacci hashing (Knuth, The Art of Computer Programming, vol. 3, 6.4): the high bits of the
  // product are the well-mixed ones.
  const std::uint64_t product = static_cast<std::uint64_t>(id) * 0x9E3779B97F4A7C15U;
  return static_cast<std::size_t>((product >> 32U) % slots_.size());
}

std::span<const SymbolId> NameTable::ids_of(std::string_view name) const {
  const auto found = std::ranges::lower_bound(names_, name);
  if (found == names_.end() || *found != name) return {};
  const auto place = static_cast<std::size_t>(found - names_.begin());
  const std::size_t start = place == 0 ? 0 : ends_[place - 1];
  return std::span(ids_).subspan(start, ends_[place] - start);
}

std::span<const std::string_view> NameTable::starting_with(std::string_view prefix) const {
  const auto first = std::ranges::upper_bound(names_, prefix);
  // Sorted, the names that start with the prefix form one run.
  const auto last = std::partition_point(
      first, names_.end(), [&](std::string_view name) { return name.starts_with(prefix); });
  return {first, last};
}

void NameTable::add(std::string_view name, std::span<const SymbolId> ids) {
  names_.push_back(name);
  ids_.insert(ids_.end(), ids.begin(), ids.end());
  ends_.push_back(static_cast<std::uint32_t>(ids_.size()));
}

}  // namespace retrieval
