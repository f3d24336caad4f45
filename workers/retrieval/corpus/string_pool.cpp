#include "retrieval/corpus/string_pool.hpp"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

namespace retrieval {
namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;

std::uint32_t hash_of(std::string_view text) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(text));
}

}  // namespace

std::string_view TextArena::keep(std::string_view text) {
  if (text.empty()) return {};
  if (text.size() > left_) {
    // A text of a block's size or more gets a block of its own, and the open one goes on.
    const std::size_t size = std::max(kBlock, text.size());
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
    if (size > kBlock) {
      std::memcpy(blocks_.back().get(), text.data(), text.size());
      return {blocks_.back().get(), text.size()};
    }
    free_ = blocks_.back().get();
    left_ = size;
  }
  char* start = free_;
  std::memcpy(start, text.data(), text.size());
  free_ += text.size();
  left_ -= text.size();
  return {start, text.size()};
}

StringPool::Ref StringPool::add(std::string_view text) {
  if (2 * texts_.size() >= slots_.size()) grow();
  const std::uint32_t hash = hash_of(text);
  Slot& slot = slots_[slot_of(text, hash)];
  if (slot.number == 0) {
    texts_.push_back(arena_.keep(text));
    slot = {hash, static_cast<std::uint32_t>(texts_.size())};
  }
  return slot.number - 1;
}

std::optional<StringPool::Ref> StringPool::find(std::string_view text) const {
  if (slots_.empty()) return std::nullopt;
  const Slot& slot = slots_[slot_of(text, hash_of(text))];
  if (slot.number == 0) return std::nullopt;
  return slot.number - 1;
}

void StringPool::close() {
  slots_ = {};
  texts_.shrink_to_fit();
}

std::size_t StringPool::slot_of(std::string_view text, std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t place = hash & mask;
  while (slots_[place].number != 0 &&
         (slots_[place].hash != hash || texts_[slots_[place].number - 1] != text)) {
    place = (place + 1) & mask;
  }
  return place;
}

void StringPool::grow() {
  std::vector<Slot> larger(std::max<std::size_t>(64, 2 * slots_.size()));
  const std::size_t mask = larger.size() - 1;
  for (const Slot& slot : slots_) {
    if (slot.number == 0) continue;
    std::size_t place = slot.hash & mask;
    while (larger[place].number != 0) place = (place + 1) & mask;
    larger[place] = slot;
  }
  slots_ = std::move(larger);
}

}  // namespace retrieval
