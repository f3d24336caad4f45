#include "retrieval/corpus/symbols.hpp"

#include <algorithm>

namespace retrieval {

std::int64_t FileTable::add(StringPool::Ref path, bool in_tests) {
  files_.push_back({path, in_tests, {}});
  return static_cast<std::int64_t>(files_.size());
}

void SymbolTable::close() {
  rows_.shrink_to_fit();
  std::vector<SymbolId> ids;
  ids.reserve(rows_.size());
  for (const Row& row : rows_) ids.push_back(row.id);
  places_ = IdIndex(ids);
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
