// Where the row of an id stands: an index from ids to their places in a list.
//
// Made once from the list, then only read, by any number of threads. Ids that lie close together,
// as row ids do, are looked up in one array by themselves; others by hashing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace retrieval {

class IdIndex {
 public:
  IdIndex() = default;
  // The ids are distinct and fewer than 2^32 - 1.
  explicit IdIndex(std::span<const std::int64_t> ids);

  // The place of the id in the list, or nothing when it is not there.
  std::optional<std::uint32_t> find(std::int64_t id) const {
    const std::uint64_t offset =
        static_cast<std::uint64_t>(id) - static_cast<std::uint64_t>(least_);
    if (ids_.empty()) {
      if (offset >= slots_.size() || slots_[offset] == 0) return std::nullopt;
      return slots_[offset] - 1;
    }
    for (std::size_t slot = slot_of(id); slots_[slot] != 0;
         slot = (slot + 1) & (slots_.size() - 1)) {
      if (ids_[slots_[slot] - 1] == id) return slots_[slot] - 1;
    }
    return std::nullopt;
  }

 private:
  std::size_t slot_of(std::int64_t id) const;

  std::int64_t least_ = 0;
  int shift_ = 0;                     // what leaves as many bits as there are slots
  std::vector<std::int64_t> ids_;     // empty when an id's distance from the least is its slot
  std::vector<std::uint32_t> slots_;  // 0 for a free slot, else the place + 1
};

}  // namespace retrieval
