#include "retrieval/corpus/id_index.hpp"

#include <algorithm>
#include <bit>

namespace retrieval {

IdIndex::IdIndex(std::span<const std::int64_t> ids) {
  if (ids.empty()) return;
  const auto [least, greatest] = std::ranges::minmax(ids);
  least_ = least;
  const std::uint64_t range =
      static_cast<std::uint64_t>(greatest) - static_cast<std::uint64_t>(least);
  // An array over the range takes no more memory than hashing up to here.
  if (range / 4 < ids.size()) {
    slots_.assign(range + 1, 0);
    for (std::size_t place = 0; place < ids.size(); ++place) {
      slots_[static_cast<std::uint64_t>(ids[place]) - static_cast<std::uint64_t>(least)] =
          static_cast<std::uint32_t>(place + 1);
    }
    return;
  }
  ids_.assign(ids.begin(), ids.end());
  const std::size_t slots = std::bit_ceil(ids.size() + ids.size() / 2 + 1);
  shift_ = 64 - std::countr_zero(slots);
  slots_.assign(slots, 0);
  for (std::size_t place = 0; place < ids.size(); ++place) {
    std::size_t slot = slot_of(ids[place]);
    while (slots_[slot] != 0) slot = (slot + 1) & (slots_.size() - 1);
    slots_[slot] = static_cast<std::uint32_t>(place + 1);
  }
}

std::size_t IdIndex::slot_of(std::int64_t id) const {
  // Fibonacci hashing (Knuth, The Art of Computer Programming, vol. 3, 6.4): the highest bits of
  // the product are the well-mixed ones.
  return (static_cast<std::uint64_t>(id) * 0x9E3779B97F4A7C15U) >> shift_;
}

}  // namespace retrieval
