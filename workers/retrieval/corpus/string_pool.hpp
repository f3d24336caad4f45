// Texts kept once each, for the life of a snapshot.
//
// A pool is filled by one thread; afterwards any number may read it. Views into it stay valid until
// it goes, wherever it is moved.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace retrieval {

// Memory for texts, in large blocks; nothing is freed before the whole.
class TextArena {
 public:
  // A copy of the text that stays where it is.
  std::string_view keep(std::string_view text);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;
  std::size_t left_ = 0;
};

class StringPool {
 public:
  // A text's number in the pool: 0, 1, 2, ... in the order in which the texts came.
  using Ref = std::uint32_t;

  // The number of the text, which is added when it is new.
  Ref add(std::string_view text);

  // The number of the text, or nothing when it was never added. Not after `close`.
  std::optional<Ref> find(std::string_view text) const;

  std::string_view operator[](Ref ref) const { return texts_[ref]; }
  std::size_t size() const { return texts_.size(); }

  // Ends the filling: drops what only `add` and `find` need.
  void close();

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t number;  // 0 for a free slot, else the text's number + 1
  };

  // Where the text stands or would stand.
  std::size_t slot_of(std::string_view text, std::uint32_t hash) const;
  void grow();

  TextArena arena_;
  std::vector<std::string_view> texts_;
  std::vector<Slot> slots_;  // open addressing; a power of two in size
};

}  // namespace retrieval
