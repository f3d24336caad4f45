#include "retrieval/corpus/string_pool.hpp"

#include <algorithm>
#include <cstring>

namespace retrieval {
namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;

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
  if (const auto found = refs_.find(text); found != refs_.end()) return found->second;
  const auto ref = static_cast<Ref>(texts_.size());
  texts_.push_back(arena_.keep(text));
  refs_.emplace(texts_.back(), ref);
  return ref;
}

void StringPool::close() {
  refs_ = {};
  texts_.shrink_to_fit();
}

}  // namespace retrieval
